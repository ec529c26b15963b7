#include "board/daemon/payloadcopy.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace board {

namespace {

bool writeAll(int descriptor, const std::uint8_t* bytes, std::size_t length) {
    while (length > 0) {
        const ssize_t written = ::write(descriptor, bytes, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        bytes += written;
        length -= std::size_t(written);
    }
    return true;
}

}  // namespace

PayloadCopy::PayloadCopy(const std::uint8_t* payload, std::size_t bytes) : made_(bytes == 0) {
    if (bytes == 0)
        return;
    const int memory = memfd_create("payload", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (memory < 0)
        return;
    if (writeAll(memory, payload, bytes) &&
        fcntl(memory, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL) == 0) {
        // Older kernels map a sealed file as shared memory only where it is open for reading alone.
        const std::string path = "/proc/self/fd/" + std::to_string(memory);
        descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    }
    ::close(memory);
    made_ = descriptor_ >= 0;
}

PayloadCopy::~PayloadCopy() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

}  // namespace board
