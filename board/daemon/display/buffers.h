// The card's memory: dumb buffers that clients map, and frame buffers that describe pictures in
// them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace board {

// What the buffers of one card take together.
struct BufferBudget {
    static constexpr std::uint64_t maxBytes = 2ull << 30;
    static constexpr unsigned maxBuffers = 256;  // each holds a descriptor of the daemon
    std::uint64_t bytes = 0;
    unsigned buffers = 0;
};

// Zeroed memory in a memfd whose size is sealed, so that no client can pull it from under the
// daemon.
class DumbBuffer {
  public:
    // Null with *error = positive errno: EINVAL for impossible sizes, ENOMEM beyond the budget.
    static std::shared_ptr<DumbBuffer> create(const std::shared_ptr<BufferBudget>& budget,
                                              std::uint32_t width, std::uint32_t height,
                                              std::uint32_t bitsPerPixel, int* error);
    ~DumbBuffer();
    DumbBuffer(const DumbBuffer&) = delete;
    DumbBuffer& operator=(const DumbBuffer&) = delete;

    std::uint32_t pitch() const { return pitch_; }  // bytes a line, a multiple of 64
    std::uint64_t size() const { return size_; }    // bytes, whole pages
    int memfd() const { return memfd_; }
    // For whoever only looks on; opened when first asked for, the buffer's.
    int readableMemfd() const;
    const std::uint8_t* data() const { return data_; }  // shared with the clients; read only here

  private:
    DumbBuffer(std::shared_ptr<BufferBudget> budget, std::uint32_t pitch, std::uint64_t size);
    int allocate();  // 0 or a positive errno

    std::shared_ptr<BufferBudget> budget_;
    std::uint32_t pitch_;
    std::uint64_t size_;
    int memfd_ = -1;
    mutable int readable_ = -1;
    const std::uint8_t* data_ = nullptr;
};

constexpr std::uint32_t maxFramebufferSide = 8192;

// A picture: DRM_FORMAT_NV12 (two planes) or DRM_FORMAT_XRGB8888 (one). Its planes lie inside their
// buffers. Without buffers it is black.
struct Framebuffer {
    std::uint32_t id = 0;
    std::uint32_t width = 0, height = 0;
    std::uint32_t format = 0;
    std::shared_ptr<DumbBuffer> buffers[2];
    std::uint32_t pitches[2] = {0, 0};
    std::uint32_t offsets[2] = {0, 0};
};

// 0 for other formats.
unsigned planeCount(std::uint32_t format);
// 0, or the negative errno that describes what is wrong with it.
int checkFramebuffer(const Framebuffer& framebuffer);

}  // namespace board
