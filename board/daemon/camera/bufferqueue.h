// The capture queue of a camera: buffers that clients map, queue and get back filled. Functions
// return 0 or -errno as the ioctl of the same purpose. Loop thread only.
#pragma once

#include <linux/videodev2.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

namespace board {

// One buffer: a sealed memfd that the client maps as well. Throws std::system_error when memory or
// descriptors run out.
class CameraBuffer {
  public:
    CameraBuffer(std::uint32_t index, std::uint32_t bytes);
    ~CameraBuffer();
    CameraBuffer(const CameraBuffer&) = delete;
    CameraBuffer& operator=(const CameraBuffer&) = delete;

    enum class State { dequeued, queued, done };

    int memfd() const { return memfd_; }
    std::uint8_t* data() const { return data_; }
    std::uint32_t length() const { return length_; }
    std::size_t mappedLength() const { return mappedLength_; }  // whole pages
    std::uint32_t offset() const;                               // for mmap
    void describe(v4l2_buffer& buffer) const;

    State state = State::dequeued;
    unsigned mappings = 0;  // of clients
    std::uint32_t bytesUsed = 0;
    std::uint32_t sequence = 0;
    bool damaged = false;  // delivered with the error flag
    std::int64_t time_ns = 0;

  private:
    std::uint32_t index_;
    std::uint32_t length_;
    std::size_t mappedLength_;
    int memfd_ = -1;
    std::uint8_t* data_ = nullptr;
};

class BufferQueue {
  public:
    // REQBUFS: drops what there is and makes `request.count` buffers of `bytes` bytes (0: none).
    int request(v4l2_requestbuffers& request, std::uint32_t bytes);
    int query(v4l2_buffer& buffer) const;
    int queue(v4l2_buffer& buffer);
    int dequeue(v4l2_buffer& buffer);
    int streamOn(std::uint32_t type);
    int streamOff(std::uint32_t type);  // every buffer is the client's again
    void clear();                       // stops and frees; memory that clients mapped stays theirs

    bool empty() const { return buffers_.empty(); }
    bool streaming() const { return streaming_; }
    unsigned doneCount() const { return unsigned(done_.size()); }
    // Nothing will come any more until the stream is stopped and started: DQBUF answers EIO.
    void fail() { failed_ = true; }
    bool failed() const { return failed_; }

    // The buffer that the next frame goes into, or null; then complete() hands it to the client.
    CameraBuffer* next() const { return queued_.empty() ? nullptr : queued_.front(); }
    void complete();

    std::shared_ptr<CameraBuffer> atOffset(std::uint64_t offset) const;  // null: none

  private:
    CameraBuffer* find(const v4l2_buffer& buffer) const;

    std::vector<std::shared_ptr<CameraBuffer>> buffers_;
    std::deque<CameraBuffer*> queued_, done_;
    bool streaming_ = false;
    bool failed_ = false;
};

}  // namespace board
