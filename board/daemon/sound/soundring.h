// The ring of frames that a stream and its client share: a sealed memfd. Loop thread only.
#pragma once

#include <cstddef>
#include <cstdint>

namespace board {

class SoundRing {
  public:
    explicit SoundRing(std::size_t bytes);  // zeroed; throws std::system_error
    ~SoundRing();
    SoundRing(const SoundRing&) = delete;
    SoundRing& operator=(const SoundRing&) = delete;

    int memfd() const { return memfd_; }
    std::uint8_t* data() const { return data_; }
    std::size_t bytes() const { return bytes_; }              // as asked for
    std::size_t mappedBytes() const { return mappedBytes_; }  // whole pages

  private:
    std::size_t bytes_, mappedBytes_;
    int memfd_ = -1;
    std::uint8_t* data_ = nullptr;
};

}  // namespace board
