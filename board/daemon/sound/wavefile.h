// A WAV file that grows while its length is not known yet. One thread at a time.
#pragma once

#include "board/daemon/sound/hardwarespace.h"

#include <cstdint>
#include <cstdio>
#include <string>

namespace board {

class WaveFile {
  public:
    // Whether frames of this format can stand in a WAV file.
    static bool canHold(const SoundFormat& format);

    // Throws std::runtime_error with one line when the file cannot be made.
    WaveFile(const std::string& path, const SoundFormat& format);
    ~WaveFile();  // writes the final lengths
    WaveFile(const WaveFile&) = delete;
    WaveFile& operator=(const WaveFile&) = delete;

    // Whole frames as they lay in the stream's ring. After an error the file stays as it is.
    void append(const std::uint8_t* frames, std::size_t bytes);
    bool failed() const { return failed_; }

  private:
    void writeHeader();

    std::FILE* file_;
    SoundFormat format_;
    std::uint64_t bytes_ = 0;
    bool failed_ = false;
};

}  // namespace board
