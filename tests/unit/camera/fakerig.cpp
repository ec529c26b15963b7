#include "tests/unit/camera/fakerig.h"

#include <fcntl.h>
#include <linux/usb/video.h>
#include <linux/uvcvideo.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <thread>

namespace {

std::atomic<FakeRig*> installed{nullptr};

std::string controlName(std::uint32_t id) {
    switch (id) {
        case V4L2_CID_PAN_ABSOLUTE:
            return "pan_absolute";
        case V4L2_CID_TILT_ABSOLUTE:
            return "tilt_absolute";
        case V4L2_CID_ZOOM_ABSOLUTE:
            return "zoom_absolute";
        case V4L2_CID_FOCUS_AUTO:
            return "auto_focus";
        case V4L2_CID_PAN_SPEED:
            return "pan_speed";
        case V4L2_CID_TILT_SPEED:
            return "tilt_speed";
        case V4L2_CID_ZOOM_CONTINUOUS:
            return "zoom_continuous";
        default:
            return std::to_string(id);
    }
}

int eventNumber(const std::string& path) {
    int number = -1;
    return std::sscanf(path.c_str(), "/dev/input/event%d", &number) == 1 ? number : -1;
}

}  // namespace

std::vector<FakeControl> ptzControls() {
    return {
        {0x00980900, "Brightness", 0, 100, 1, 50, 51},
        {0x00980901, "Contrast", 0, 100, 1, 50, 52},
        {0x00980902, "Saturation", 0, 100, 1, 50, 53},
        {0x00980903, "Hue", -50, 50, 1, 0, 4},
        {0x0098090c, "White Balance Temperature, Auto", 0, 1, 1, 1, 1},
        {0x0098091a, "White Balance Temperature", 2800, 6500, 1, 4000, 5000},
        {0x0098091b, "Sharpness", 0, 4, 1, 2, 3},
        {0x009a0908, "Pan (Absolute)", -18000, 18000, 3600, 0, 7200},
        {0x009a0909, "Tilt (Absolute)", -324000, 324000, 7200, 3600, -7200},
        {0x009a090c, "Focus, Auto", 0, 1, 1, 1, 0},
        {0x009a090d, "Zoom, Absolute", 0, 100, 1, 0, 30},
        {0x009a090f, "Zoom, Continuous", -100, 100, 1, 0, 0},
        {0x009a0920, "Pan (Speed)", -160, 160, 1, 0, 0},
        {0x009a0921, "Tilt (Speed)", -120, 120, 1, 0, 0},
    };
}

FakeRig::FakeRig() {
    installed = this;
}

FakeRig::~FakeRig() {
    installed = nullptr;
    for (const auto& [number, sides] : oldSides_) {
        for (const int side : sides) {
            ::close(side);
        }
    }
}

FakeRig* FakeRig::current() {
    return installed;
}

void FakeRig::plugReceiver(int number, const std::string& name) {
    const std::lock_guard<std::mutex> guard(lock_);
    auto receiver = std::make_shared<Receiver>();
    receiver->name = name;
    receivers_[number] = std::move(receiver);
}

void FakeRig::unplugReceiver(int number, bool quietly) {
    const std::lock_guard<std::mutex> guard(lock_);
    receivers_.at(number)->gone = true;
    receivers_.at(number)->quiet = quietly;
    receivers_.erase(number);
}

bool FakeRig::waitOpened(unsigned times) {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, deadline, [&] { return opened_ >= times; });
}

bool FakeRig::waitSearched(unsigned times) {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, deadline, [&] { return searches_ >= times; });
}

void FakeRig::send(int number, int type, int code, int value) {
    input_event event{};
    event.type = static_cast<std::uint16_t>(type);
    event.code = static_cast<std::uint16_t>(code);
    event.value = value;
    std::vector<int> sides;
    {
        const std::lock_guard<std::mutex> guard(lock_);
        for (auto& [fd, open] : open_) {
            if (open.receiver != nullptr && open.number == number && !open.receiver->gone) {
                open.sent += sizeof event;
                open.drained = false;
                sides.push_back(open.testSide);
            }
        }
    }
    for (const int side : sides) {
        // Nobody may be left to read it.
        ::send(side, &event, sizeof event, MSG_NOSIGNAL);
    }
}

void FakeRig::press(int number, int key) {
    send(number, EV_MSC, MSC_SCAN, 0x70000 + key);
    send(number, EV_KEY, key, 1);
    send(number, EV_SYN, SYN_REPORT, 0);
}

void FakeRig::release(int number, int key) {
    send(number, EV_MSC, MSC_SCAN, 0x70000 + key);
    send(number, EV_KEY, key, 0);
    send(number, EV_SYN, SYN_REPORT, 0);
}

void FakeRig::repeat(int number, int key) {
    send(number, EV_KEY, key, 2);
    send(number, EV_SYN, SYN_REPORT, 1);
}

bool FakeRig::settle() {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, deadline, [this] {
        return std::all_of(open_.begin(), open_.end(), [](const auto& entry) {
            return entry.second.receiver == nullptr || entry.second.drained;
        });
    });
}

std::vector<input_event> FakeRig::written(int number) {
    const std::lock_guard<std::mutex> guard(lock_);
    std::vector<int> sides = oldSides_[number];
    for (const auto& [fd, open] : open_) {
        if (open.number == number) {
            sides.push_back(open.testSide);
        }
    }
    std::vector<input_event> events;
    for (const int side : sides) {
        input_event event{};
        while (recv(side, &event, sizeof event, MSG_DONTWAIT) == sizeof event) {
            events.push_back(event);
        }
    }
    return events;
}

void FakeRig::tell(const std::string& what) {
    told_.push_back(what);
    lastTold_ = std::chrono::steady_clock::now();
}

std::vector<std::string> FakeRig::told() const {
    const std::lock_guard<std::mutex> guard(lock_);
    return told_;
}

bool FakeRig::waitTold(std::size_t count) {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, deadline, [&] { return told_.size() >= count; });
}

unsigned FakeRig::unitReads(int unit, int selector) const {
    const std::lock_guard<std::mutex> guard(lock_);
    const auto found = unitReads_.find({unit, selector});
    return found == unitReads_.end() ? 0 : found->second;
}

std::chrono::steady_clock::time_point FakeRig::lastTold() const {
    const std::lock_guard<std::mutex> guard(lock_);
    return lastTold_;
}

std::size_t FakeRig::openDescriptors() const {
    const std::lock_guard<std::mutex> guard(lock_);
    return open_.size();
}

int FakeRig::openFlags(const std::string& path) const {
    const std::lock_guard<std::mutex> guard(lock_);
    const auto found = openFlags_.find(path);
    return found == openFlags_.end() ? -1 : found->second;
}

unsigned FakeRig::openings(const std::string& path) const {
    const std::lock_guard<std::mutex> guard(lock_);
    const auto found = openings_.find(path);
    return found == openings_.end() ? 0 : found->second;
}

bool FakeRig::owns(int fd) const {
    const std::lock_guard<std::mutex> guard(lock_);
    return open_.count(fd) != 0;
}

bool FakeRig::exists(const std::string& path) const {
    const std::lock_guard<std::mutex> guard(lock_);
    return receivers_.count(eventNumber(path)) != 0;
}

int FakeRig::open(const std::string& path, int flags) {
    const std::lock_guard<std::mutex> guard(lock_);
    const int number = eventNumber(path);
    ++openings_[path];
    openFlags_[path] = flags;
    if (number == 9 && (flags & O_ACCMODE) == O_RDONLY) {
        ++searches_;
        changed_.notify_all();
    }
    const bool isCamera = path == cameraNode;
    if (isCamera ? cameraGone.load() : receivers_.count(number) == 0) {
        return -ENOENT;
    }
    const bool forWriting = (flags & O_ACCMODE) == O_RDWR;
    if (!isCamera && forWriting && receiversRefuse) {
        return -EACCES;
    }
    int sides[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sides) == -1) {
        return -errno;
    }
    if ((flags & O_NONBLOCK) != 0) {
        fcntl(sides[0], F_SETFL, O_NONBLOCK);
    }
    Open open;
    open.receiver = isCamera ? nullptr : receivers_.at(number);
    open.number = number;
    open.testSide = sides[1];
    open_[sides[0]] = open;
    if (!isCamera && forWriting) {
        ++opened_;
        changed_.notify_all();
    }
    return sides[0];
}

int FakeRig::closed(int fd) {
    const std::lock_guard<std::mutex> guard(lock_);
    const Open open = open_.at(fd);
    open_.erase(fd);
    changed_.notify_all();
    if (open.receiver == nullptr) {
        return open.testSide;
    }
    oldSides_[open.number].push_back(open.testSide);
    return -1;
}

ssize_t FakeRig::read(int fd, void* buffer, std::size_t size) {
    const std::lock_guard<std::mutex> guard(lock_);
    Open& open = open_.at(fd);
    if (open.receiver != nullptr && open.receiver->gone) {
        return open.receiver->quiet ? -EAGAIN : -ENODEV;
    }
    const ssize_t got = recv(fd, buffer, size, MSG_DONTWAIT);
    if (got > 0) {
        open.taken += static_cast<std::size_t>(got);
        return got;
    }
    // Asked for more: what was taken before is dealt with.
    if (open.taken == open.sent) {
        open.drained = true;
        changed_.notify_all();
    }
    return got == 0 ? 0 : -errno;
}

int FakeRig::ioctl(int fd, unsigned long request, void* argument) {
    std::unique_lock<std::mutex> guard(lock_);
    const std::shared_ptr<Receiver> receiver = open_.at(fd).receiver;
    if (receiver != nullptr) {
        return receiver->gone ? -ENODEV : receiverIoctl(*receiver, request, argument);
    }
    if (cameraGone) {
        return -ENODEV;
    }
    if (request == UVCIOC_CTRL_QUERY && unitAnswer.count() != 0) {
        guard.unlock();
        std::this_thread::sleep_for(unitAnswer);
        guard.lock();
    }
    const int result = cameraIoctl(request, argument);
    changed_.notify_all();
    return result;
}

int FakeRig::receiverIoctl(const Receiver& receiver, unsigned long request, void* argument) const {
    const std::size_t room = _IOC_SIZE(request);
    if (request == EVIOCGVERSION) {
        *static_cast<int*>(argument) = EV_VERSION;
        return 0;
    }
    if (_IOC_TYPE(request) == 'E' && _IOC_NR(request) == _IOC_NR(EVIOCGNAME(0))) {
        const std::size_t length = std::min(room, receiver.name.size() + 1);
        std::memcpy(argument, receiver.name.c_str(), length);
        return static_cast<int>(length);
    }
    if (_IOC_TYPE(request) == 'E' && _IOC_NR(request) == _IOC_NR(EVIOCGBIT(0, 0))) {
        const unsigned types = 1U << EV_SYN | 1U << EV_KEY | 1U << EV_MSC | 1U << EV_LED;
        std::memcpy(argument, &types, std::min(room, sizeof types));
        return static_cast<int>(std::min(room, sizeof types));
    }
    return -EINVAL;
}

int FakeRig::cameraIoctl(unsigned long request, void* argument) {
    switch (request) {
        case VIDIOC_QUERYCAP: {
            auto& value = *static_cast<v4l2_capability*>(argument);
            std::strcpy(reinterpret_cast<char*>(value.driver), "uvcvideo");
            std::memset(value.card, 'x', sizeof value.card);  // fills its field without a zero
            std::strcpy(reinterpret_cast<char*>(value.bus_info), "usb-1");
            value.version = 0x00060142;
            ++capabilityQueries_;
            return 0;
        }
        case VIDIOC_QUERY_EXT_CTRL:
            return queryControl(*static_cast<v4l2_query_ext_ctrl*>(argument));
        case VIDIOC_G_CTRL:
            return getControl(*static_cast<v4l2_control*>(argument));
        case VIDIOC_S_CTRL:
            return setControl(*static_cast<v4l2_control*>(argument));
        case UVCIOC_CTRL_QUERY:
            return queryUnit(argument);
        default:
            return -ENOTTY;
    }
}

int FakeRig::queryControl(v4l2_query_ext_ctrl& query) const {
    constexpr std::uint32_t next = V4L2_CTRL_FLAG_NEXT_CTRL | V4L2_CTRL_FLAG_NEXT_COMPOUND;
    if ((query.id & next) != next) {
        return -EINVAL;
    }
    const std::uint32_t after = stuckControls ? 0 : query.id & ~next;
    const auto found = std::find_if(controls.begin(), controls.end(),
                                    [&](const FakeControl& control) { return control.id > after; });
    if (found == controls.end() && !endlessControls) {
        return -EINVAL;
    }
    const FakeControl& control = found == controls.end() ? controls.back() : *found;
    query.id = found == controls.end() ? after + 1 : control.id;
    std::strncpy(query.name, control.name.c_str(), sizeof query.name);
    query.minimum = control.minimum;
    query.maximum = control.maximum;
    query.step = control.step;
    query.default_value = control.defaultValue;
    query.flags = control.flags;
    return 0;
}

int FakeRig::getControl(v4l2_control& control) {
    ++controlReads_;
    const auto found = std::find_if(controls.begin(), controls.end(),
                                    [&](const FakeControl& c) { return c.id == control.id; });
    if (found == controls.end() || refusedControls.count(control.id) != 0) {
        return -EINVAL;
    }
    control.value = found->value;
    return 0;
}

int FakeRig::setControl(const v4l2_control& control) {
    tell(controlName(control.id) + "=" + std::to_string(control.value));
    const auto found = std::find_if(controls.begin(), controls.end(),
                                    [&](const FakeControl& c) { return c.id == control.id; });
    if (found == controls.end() || refusedControls.count(control.id) != 0) {
        return -EINVAL;
    }
    const std::int64_t clamped =
        std::clamp<std::int64_t>(control.value, found->minimum, found->maximum);
    found->value = static_cast<std::int32_t>(clamped);
    return 0;
}

int FakeRig::queryUnit(void* argument) {
    const auto& query = *static_cast<uvc_xu_control_query*>(argument);
    if (query.query == UVC_GET_CUR) {
        ++unitReads_[{query.unit, query.selector}];
    }
    if (query.unit != extensionUnit) {
        return -ENOENT;
    }
    if (query.selector < 2 || query.selector > 4) {
        return -ENOENT;
    }
    if (query.size != 60) {
        return -ENOBUFS;
    }
    if (query.query == UVC_GET_CUR) {
        for (int i = 0; i < 60; ++i) {
            query.data[i] = static_cast<unsigned char>(i);
        }
        query.data[0] = tracking;
        return 0;
    }
    if (query.query != UVC_SET_CUR) {
        return -EINVAL;
    }
    std::ostringstream bytes;
    bytes << "xu " << int{query.unit} << '.' << int{query.selector} << '=';
    for (int i = 0; i < 60; ++i) {
        char text[4];
        std::snprintf(text, sizeof text, "%02X ", query.data[i]);
        bytes << text;
    }
    tell(bytes.str());
    if (refusesCommands) {
        return -EPIPE;
    }
    if (query.selector == 3) {
        tracking = query.data[0];
    }
    return 0;
}
