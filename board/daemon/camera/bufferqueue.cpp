#include "board/daemon/camera/bufferqueue.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace board {

namespace {

constexpr std::uint32_t mostBuffers = 32;
// Offsets tell buffers apart and nothing else; they must be multiples of the page size.
constexpr unsigned offsetShift = 15;

std::size_t wholePages(std::size_t bytes) {
    const std::size_t page = std::size_t(sysconf(_SC_PAGESIZE));
    return (bytes + page - 1) / page * page;
}

}  // namespace

CameraBuffer::CameraBuffer(std::uint32_t index, std::uint32_t bytes)
    : index_(index), length_(bytes), mappedLength_(wholePages(bytes)) {
    memfd_ = memfd_create("camera-buffer", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (memfd_ < 0)
        throw std::system_error(errno, std::generic_category(), "memfd_create");
    void* memory = MAP_FAILED;
    // Sealed: a client that shrinks the file would end this process with SIGBUS.
    if (ftruncate(memfd_, off_t(mappedLength_)) == 0 &&
        fcntl(memfd_, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) == 0)
        memory = mmap(nullptr, mappedLength_, PROT_READ | PROT_WRITE, MAP_SHARED, memfd_, 0);
    if (memory == MAP_FAILED) {
        const int error = errno;
        ::close(memfd_);
        throw std::system_error(error, std::generic_category(), "camera buffer");
    }
    data_ = static_cast<std::uint8_t*>(memory);
}

CameraBuffer::~CameraBuffer() {
    munmap(data_, mappedLength_);
    ::close(memfd_);
}

std::uint32_t CameraBuffer::offset() const {
    return index_ << offsetShift;
}

void CameraBuffer::describe(v4l2_buffer& buffer) const {
    buffer = {};
    buffer.index = index_;
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.bytesused = bytesUsed;
    buffer.flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC | V4L2_BUF_FLAG_TSTAMP_SRC_SOE;
    if (state == State::queued)
        buffer.flags |= V4L2_BUF_FLAG_QUEUED;
    if (state == State::done)
        buffer.flags |= V4L2_BUF_FLAG_DONE;
    if (damaged && state != State::queued)
        buffer.flags |= V4L2_BUF_FLAG_ERROR;
    if (mappings > 0)
        buffer.flags |= V4L2_BUF_FLAG_MAPPED;
    buffer.field = V4L2_FIELD_NONE;
    buffer.timestamp.tv_sec = time_ns / 1000000000;
    buffer.timestamp.tv_usec = time_ns % 1000000000 / 1000;
    buffer.sequence = sequence;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.m.offset = offset();
    buffer.length = length_;
}

int BufferQueue::request(v4l2_requestbuffers& request, std::uint32_t bytes) {
    const std::uint32_t wanted = std::min(request.count, mostBuffers);
    if (request.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || request.memory != V4L2_MEMORY_MMAP)
        return -EINVAL;
    if (streaming_)
        return -EBUSY;
    clear();
    request = {};
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    request.capabilities = V4L2_BUF_CAP_SUPPORTS_MMAP | V4L2_BUF_CAP_SUPPORTS_ORPHANED_BUFS;
    if (wanted != 0 && bytes == 0)
        return -EINVAL;
    try {
        for (std::uint32_t index = 0; index < wanted; ++index)
            buffers_.push_back(std::make_shared<CameraBuffer>(index, bytes));
    } catch (const std::system_error&) {
        // Fewer buffers than wished for are an answer, none is not.
        if (buffers_.empty())
            return -ENOMEM;
    }
    request.count = std::uint32_t(buffers_.size());
    return 0;
}

CameraBuffer* BufferQueue::find(const v4l2_buffer& buffer) const {
    if (buffer.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || buffer.index >= buffers_.size())
        return nullptr;
    return buffers_[buffer.index].get();
}

int BufferQueue::query(v4l2_buffer& buffer) const {
    const CameraBuffer* found = find(buffer);
    if (found == nullptr)
        return -EINVAL;
    found->describe(buffer);
    return 0;
}

int BufferQueue::queue(v4l2_buffer& buffer) {
    CameraBuffer* found = find(buffer);
    if (found == nullptr || buffer.memory != V4L2_MEMORY_MMAP)
        return -EINVAL;
    if (buffer.flags & V4L2_BUF_FLAG_REQUEST_FD)  // no media requests here
        return -EBADR;
    if (found->state != CameraBuffer::State::dequeued)
        return -EINVAL;
    found->state = CameraBuffer::State::queued;
    found->bytesUsed = 0;
    found->sequence = 0;
    found->damaged = false;
    found->time_ns = 0;
    queued_.push_back(found);
    found->describe(buffer);
    return 0;
}

int BufferQueue::dequeue(v4l2_buffer& buffer) {
    if (buffer.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || !streaming_)
        return -EINVAL;
    if (failed_)
        return -EIO;
    if (done_.empty())
        return -EAGAIN;
    CameraBuffer* first = done_.front();
    done_.pop_front();
    first->state = CameraBuffer::State::dequeued;
    first->describe(buffer);
    return 0;
}

int BufferQueue::streamOn(std::uint32_t type) {
    if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE || buffers_.empty())
        return -EINVAL;
    streaming_ = true;
    return 0;
}

int BufferQueue::streamOff(std::uint32_t type) {
    if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE)
        return -EINVAL;
    streaming_ = false;
    failed_ = false;
    queued_.clear();
    done_.clear();
    for (const auto& buffer : buffers_)
        buffer->state = CameraBuffer::State::dequeued;
    return 0;
}

void BufferQueue::clear() {
    streamOff(V4L2_BUF_TYPE_VIDEO_CAPTURE);
    buffers_.clear();
}

void BufferQueue::complete() {
    CameraBuffer* buffer = queued_.front();
    queued_.pop_front();
    buffer->state = CameraBuffer::State::done;
    done_.push_back(buffer);
}

std::shared_ptr<CameraBuffer> BufferQueue::atOffset(std::uint64_t offset) const {
    for (const auto& buffer : buffers_) {
        if (buffer->offset() == offset)
            return buffer;
    }
    return nullptr;
}

}  // namespace board
