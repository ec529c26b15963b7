#include "tests/unit/capture/fakecamera.h"

#include "control/task/fourcc.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace {

std::atomic<FakeCamera*> installed{nullptr};

template <std::size_t N>
void fill(__u8 (&field)[N], const std::string& text) {
    std::memcpy(field, text.data(), std::min(N, text.size()));
}

}  // namespace

FakeCamera::FakeCamera(board::CameraDescription description, std::string path)
    : capabilities(V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING),
      description_(std::move(description)),
      path_(std::move(path)),
      event_(eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK | EFD_CLOEXEC)) {
    installed = this;
}

FakeCamera::~FakeCamera() {
    installed = nullptr;
    ::close(event_);
}

FakeCamera* FakeCamera::current() {
    return installed;
}

void FakeCamera::note(const std::string& call) {
    const std::lock_guard<std::mutex> guard(lock_);
    calls_.push_back(call);
}

std::vector<std::string> FakeCamera::calls() const {
    const std::lock_guard<std::mutex> guard(lock_);
    return calls_;
}

bool FakeCamera::deliver(const std::vector<std::uint8_t>& payload, std::uint32_t bytesused) {
    std::unique_lock<std::mutex> guard(lock_);
    if (!changed_.wait_for(guard, deadline, [this] { return !queued_.empty(); })) {
        return false;
    }
    const std::uint32_t index = queued_.front();
    queued_.pop_front();
    std::memcpy(memory_.at(index).get(), payload.data(), payload.size());
    const auto length = static_cast<std::uint32_t>(payload.size());
    done_.push_back({index, bytesused == 0 ? length : bytesused});
    eventfd_write(event_, 1);
    return true;
}

void FakeCamera::unplug() {
    const std::lock_guard<std::mutex> guard(lock_);
    gone_ = true;
    eventfd_write(event_, 1);
}

bool FakeCamera::waitQueued(std::size_t count) {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, deadline, [&] { return queued_.size() == count; });
}

void FakeCamera::refuseRequeues() {
    const std::lock_guard<std::mutex> guard(lock_);
    refusing_ = true;
}

bool FakeCamera::waitRefused(unsigned count) {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, deadline, [&] { return refused_ >= count; });
}

bool FakeCamera::owns(int fd) const {
    const std::lock_guard<std::mutex> guard(lock_);
    return std::find(descriptors_.begin(), descriptors_.end(), fd) != descriptors_.end();
}

int FakeCamera::openNode(int flags) {
    openFlags = flags;
    note("open");
    if (openError != 0) {
        errno = openError;
        return -1;
    }
    const int fd = fcntl(event_, F_DUPFD_CLOEXEC, lowestDescriptor);
    if (fd == -1) {
        return -1;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    descriptors_.push_back(fd);
    ++open_;
    return fd;
}

void FakeCamera::closed(int fd) {
    const std::lock_guard<std::mutex> guard(lock_);
    descriptors_.erase(std::find(descriptors_.begin(), descriptors_.end(), fd));
    --open_;
    calls_.push_back("close");
}

int FakeCamera::ioctl(int /*fd*/, unsigned long request, void* argument) {
    const std::lock_guard<std::mutex> guard(lock_);
    const auto found = failing.find(request);
    const int result = gone_                    ? -ENODEV
                       : found != failing.end() ? -found->second
                                                : answer(request, argument);
    changed_.notify_all();
    if (result < 0) {
        errno = -result;
        return -1;
    }
    return result;
}

int FakeCamera::answer(unsigned long request, void* argument) {
    switch (request) {
        case VIDIOC_QUERYCAP: {
            auto& value = *static_cast<v4l2_capability*>(argument);
            fill(value.driver, description_.driver);
            fill(value.card,
                 unterminatedCard ? std::string(sizeof value.card, 'x') : description_.card);
            fill(value.bus_info, description_.busInfo);
            value.version = description_.version;
            value.capabilities = capabilities;
            return 0;
        }
        case VIDIOC_ENUM_FMT:
            ++enumerations;
            return enumFormat(argument);
        case VIDIOC_ENUM_FRAMESIZES:
            ++enumerations;
            return enumSize(argument);
        case VIDIOC_ENUM_FRAMEINTERVALS:
            ++enumerations;
            return enumInterval(argument);
        case VIDIOC_S_FMT: {
            const auto& pix = static_cast<v4l2_format*>(argument)->fmt.pix;
            setWidth = pix.width;
            setHeight = pix.height;
            setFourcc = pix.pixelformat;
            setField = pix.field;
            calls_.push_back("S_FMT");
            return 0;
        }
        case VIDIOC_G_PARM:
            static_cast<v4l2_streamparm*>(argument)->parm.capture.timeperframe = {333333, 10000000};
            calls_.push_back("G_PARM");
            return 0;
        case VIDIOC_S_PARM:
            setRate =
                static_cast<v4l2_streamparm*>(argument)->parm.capture.timeperframe.denominator;
            calls_.push_back("S_PARM");
            return 0;
        case VIDIOC_REQBUFS:
            static_cast<v4l2_requestbuffers*>(argument)->count = grantedBuffers;
            calls_.push_back("REQBUFS");
            return 0;
        case VIDIOC_QUERYBUF: {
            auto& buffer = *static_cast<v4l2_buffer*>(argument);
            buffer.length = bufferBytes;
            buffer.m.offset = buffer.index << 20;
            return 0;
        }
        case VIDIOC_QBUF:
            return queueBuffer(argument);
        case VIDIOC_DQBUF:
            return dequeueBuffer(argument);
        case VIDIOC_STREAMON:
            calls_.push_back("STREAMON");
            return 0;
        case VIDIOC_STREAMOFF:
            calls_.push_back("STREAMOFF");
            return 0;
        default:
            return -ENOTTY;
    }
}

const board::CameraFormat* FakeCamera::formatOf(std::uint32_t fourcc) const {
    const auto found = std::find_if(description_.formats.begin(), description_.formats.end(),
                                    [&](const auto& format) { return format.fourcc == fourcc; });
    return found == description_.formats.end() ? nullptr : &*found;
}

int FakeCamera::enumFormat(void* argument) const {
    auto& value = *static_cast<v4l2_fmtdesc*>(argument);
    const std::size_t index = endless ? 0 : value.index;
    if (index >= description_.formats.size()) {
        return -EINVAL;
    }
    value.pixelformat = description_.formats[index].fourcc;
    return 0;
}

int FakeCamera::enumSize(void* argument) const {
    auto& value = *static_cast<v4l2_frmsizeenum*>(argument);
    const board::CameraFormat* format = formatOf(value.pixel_format);
    const std::size_t index = endless ? 0 : value.index;
    if (format == nullptr || index >= format->sizes.size()) {
        return -EINVAL;
    }
    const board::CameraSize& size = format->sizes[index];
    if (stepwiseSizes) {
        value.type = V4L2_FRMSIZE_TYPE_STEPWISE;
        value.stepwise = {size.width, size.width, 1, size.height, size.height, 1};
    } else {
        value.type = V4L2_FRMSIZE_TYPE_DISCRETE;
        value.discrete = {size.width, size.height};
    }
    return 0;
}

int FakeCamera::enumInterval(void* argument) const {
    auto& value = *static_cast<v4l2_frmivalenum*>(argument);
    const board::CameraFormat* format = formatOf(value.pixel_format);
    const std::size_t index = endless ? 0 : value.index;
    if (format == nullptr) {
        return -EINVAL;
    }
    for (const board::CameraSize& size : format->sizes) {
        // A camera of ranges takes every size.
        const bool matches =
            stepwiseSizes || (size.width == value.width && size.height == value.height);
        if (!matches || index >= size.intervals.size()) {
            continue;
        }
        const board::Fraction& interval = size.intervals[index];
        const v4l2_fract fraction{interval.numerator, interval.denominator};
        value.type = stepwiseIntervals ? V4L2_FRMIVAL_TYPE_STEPWISE : V4L2_FRMIVAL_TYPE_DISCRETE;
        if (stepwiseIntervals) {
            value.stepwise = {fraction, {1, 1}, {1, 1}};
        } else {
            value.discrete = fraction;
        }
        return 0;
    }
    return -EINVAL;
}

int FakeCamera::queueBuffer(void* argument) {
    if (refusing_) {
        ++refused_;
        return -EINVAL;
    }
    queued_.push_back(static_cast<v4l2_buffer*>(argument)->index);
    return 0;
}

int FakeCamera::dequeueBuffer(void* argument) {
    if (done_.empty()) {
        return -EAGAIN;
    }
    eventfd_t count = 0;
    eventfd_read(event_, &count);
    auto& buffer = *static_cast<v4l2_buffer*>(argument);
    buffer.index = done_.front().index + reportedIndexOffset;
    buffer.bytesused = done_.front().bytesused;
    done_.pop_front();
    return 0;
}

void* FakeCamera::map(std::size_t length, long offset) {
    const std::lock_guard<std::mutex> guard(lock_);
    const auto index = static_cast<std::size_t>(offset >> 20);
    if (memory_.size() <= index) {
        memory_.resize(index + 1);
    }
    memory_[index] = std::make_unique<std::uint8_t[]>(length);
    ++mapped_;
    return memory_[index].get();
}

bool FakeCamera::unmap(void* start) {
    const std::lock_guard<std::mutex> guard(lock_);
    const bool mine = std::any_of(memory_.begin(), memory_.end(),
                                  [&](const Memory& memory) { return memory.get() == start; });
    if (mine) {
        --mapped_;
    }
    return mine;
}

board::CameraFormat cameraFormat(const char (&fourcc)[5], const std::vector<Mode>& modes) {
    board::CameraFormat format;
    format.fourcc = fourccOf(fourcc);
    for (const Mode& mode : modes) {
        board::CameraSize size;
        size.width = mode.width;
        size.height = mode.height;
        for (const std::uint32_t rate : mode.rates) {
            size.intervals.push_back({1, rate});
        }
        format.sizes.push_back(size);
    }
    return format;
}

board::CameraDescription camera(std::vector<board::CameraFormat> formats, std::string card) {
    board::CameraDescription description;
    description.card = std::move(card);
    description.formats = std::move(formats);
    return description;
}
