#include "board/daemon/display/buffers.h"

#include <drm_fourcc.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <string>
#include <utility>

namespace board {

namespace {

constexpr std::uint64_t pitchAlignment = 64;
constexpr std::uint64_t pageBytes = 4096;
constexpr std::uint64_t max32 = std::numeric_limits<std::uint32_t>::max();

constexpr std::uint64_t roundUp(std::uint64_t value, std::uint64_t step) {
    return (value + step - 1) / step * step;
}

}  // namespace

std::shared_ptr<DumbBuffer> DumbBuffer::create(const std::shared_ptr<BufferBudget>& budget,
                                               std::uint32_t width, std::uint32_t height,
                                               std::uint32_t bitsPerPixel, int* error) {
    *error = EINVAL;
    if (width == 0 || height == 0 || bitsPerPixel == 0)
        return nullptr;
    const std::uint64_t pixelBytes = (std::uint64_t(bitsPerPixel) + 7) / 8;
    if (pixelBytes > max32 / width)
        return nullptr;
    const std::uint64_t pitch = roundUp(pixelBytes * width, pitchAlignment);
    if (pitch > max32 || height > max32 / pitch)
        return nullptr;
    const std::uint64_t size = roundUp(pitch * height, pageBytes);
    *error = ENOMEM;
    if (size > BufferBudget::maxBytes - budget->bytes ||
        budget->buffers >= BufferBudget::maxBuffers)
        return nullptr;
    std::shared_ptr<DumbBuffer> buffer(new DumbBuffer(budget, std::uint32_t(pitch), size));
    *error = buffer->allocate();
    return *error == 0 ? buffer : nullptr;
}

DumbBuffer::DumbBuffer(std::shared_ptr<BufferBudget> budget, std::uint32_t pitch,
                       std::uint64_t size)
    : budget_(std::move(budget)), pitch_(pitch), size_(size) {
    budget_->bytes += size_;
    ++budget_->buffers;
}

int DumbBuffer::allocate() {
    memfd_ = memfd_create("scan-out", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (memfd_ < 0 || ftruncate(memfd_, off_t(size_)) != 0)
        return ENOMEM;
    if (fcntl(memfd_, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0)
        return ENOMEM;
    void* address = mmap(nullptr, size_, PROT_READ, MAP_SHARED, memfd_, 0);
    if (address == MAP_FAILED)
        return ENOMEM;
    data_ = static_cast<const std::uint8_t*>(address);
    return 0;
}

DumbBuffer::~DumbBuffer() {
    if (data_ != nullptr)
        munmap(const_cast<std::uint8_t*>(data_), size_);
    for (const int descriptor : {memfd_, readable_})
        if (descriptor >= 0)
            ::close(descriptor);
    budget_->bytes -= size_;
    --budget_->buffers;
}

int DumbBuffer::readableMemfd() const {
    if (readable_ < 0) {
        const std::string path = "/proc/self/fd/" + std::to_string(memfd_);
        readable_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    }
    // Without it the other one serves: this keeps nobody out, it only guards against slips.
    return readable_ >= 0 ? readable_ : memfd_;
}

unsigned planeCount(std::uint32_t format) {
    switch (format) {
        case DRM_FORMAT_NV12:
            return 2;
        case DRM_FORMAT_XRGB8888:
            return 1;
        default:
            return 0;
    }
}

int checkFramebuffer(const Framebuffer& framebuffer) {
    const unsigned planes = planeCount(framebuffer.format);
    if (planes == 0 || framebuffer.width == 0 || framebuffer.height == 0)
        return -EINVAL;
    if (framebuffer.width > maxFramebufferSide || framebuffer.height > maxFramebufferSide)
        return -EINVAL;
    const bool subsampled = framebuffer.format == DRM_FORMAT_NV12;
    if (subsampled && (framebuffer.width % 2 != 0 || framebuffer.height % 2 != 0))
        return -EINVAL;
    for (unsigned plane = 0; plane < planes; ++plane) {
        if (framebuffer.buffers[plane] == nullptr)
            return -EINVAL;
        // A line of interleaved chroma is as long as a line of luma.
        const std::uint64_t lineBytes = std::uint64_t(framebuffer.width) * (subsampled ? 1 : 4);
        const std::uint64_t lines = plane == 0 ? framebuffer.height : framebuffer.height / 2;
        const std::uint64_t pitch = framebuffer.pitches[plane];
        const std::uint64_t offset = framebuffer.offsets[plane];
        if (pitch * lines + offset > max32)
            return -ERANGE;
        if (pitch < lineBytes)
            return -EINVAL;
        if (offset + (lines - 1) * pitch + lineBytes > framebuffer.buffers[plane]->size())
            return -EINVAL;
    }
    return 0;
}

}  // namespace board
