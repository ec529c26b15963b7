#include "board/daemon/sound/soundring.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace board {

namespace {

constexpr std::size_t page = 4096;

}  // namespace

SoundRing::SoundRing(std::size_t bytes)
    : bytes_(bytes), mappedBytes_((bytes + page - 1) / page * page) {
    memfd_ = ::memfd_create("sound", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    void* memory = MAP_FAILED;
    // Sealed: a client that shrinks it would kill the board.
    if (memfd_ >= 0 && ::ftruncate(memfd_, off_t(mappedBytes_)) == 0 &&
        ::fcntl(memfd_, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) == 0)
        memory = ::mmap(nullptr, mappedBytes_, PROT_READ | PROT_WRITE, MAP_SHARED, memfd_, 0);
    if (memory == MAP_FAILED) {
        const int error = errno;
        if (memfd_ >= 0)
            ::close(memfd_);
        throw std::system_error(error, std::generic_category(), "sound buffer");
    }
    data_ = static_cast<std::uint8_t*>(memory);
}

SoundRing::~SoundRing() {
    ::munmap(data_, mappedBytes_);
    ::close(memfd_);
}

}  // namespace board
