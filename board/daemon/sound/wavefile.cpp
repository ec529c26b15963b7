#include "board/daemon/sound/wavefile.h"

#include <sound/asound.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace board {

namespace {

constexpr std::uint16_t integerSamples = 1, floatSamples = 3;
constexpr std::size_t headerBytes = 44;
// What a player reads beyond 4 GB is its own affair: the lengths stay at the limit.
constexpr std::uint64_t mostBytes = 0xffffffffU - headerBytes;

bool isFloat(int format) {
    return format == SNDRV_PCM_FORMAT_FLOAT_LE || format == SNDRV_PCM_FORMAT_FLOAT64_LE;
}

class Header {
  public:
    Header& text(const char* four) {
        bytes_.insert(bytes_.end(), four, four + 4);
        return *this;
    }
    Header& number(std::uint64_t value, unsigned bytes) {
        for (unsigned i = 0; i < bytes; ++i)
            bytes_.push_back(std::uint8_t(value >> (8 * i)));
        return *this;
    }
    const std::vector<std::uint8_t>& bytes() const { return bytes_; }

  private:
    std::vector<std::uint8_t> bytes_;
};

}  // namespace

bool WaveFile::canHold(const SoundFormat& format) {
    switch (format.format) {
        case SNDRV_PCM_FORMAT_U8:
        case SNDRV_PCM_FORMAT_S16_LE:
        case SNDRV_PCM_FORMAT_S24_LE:
        case SNDRV_PCM_FORMAT_S24_3LE:
        case SNDRV_PCM_FORMAT_S32_LE:
            return true;
        default:
            return isFloat(format.format);
    }
}

WaveFile::WaveFile(const std::string& path, const SoundFormat& format)
    : file_(std::fopen(path.c_str(), "wbe")), format_(format) {
    if (file_ == nullptr)
        throw std::runtime_error(path + ": " + std::strerror(errno));
    writeHeader();
}

WaveFile::~WaveFile() {
    if (std::fseek(file_, 0, SEEK_SET) == 0)
        writeHeader();
    std::fclose(file_);
}

void WaveFile::writeHeader() {
    const std::uint64_t data = std::min(bytes_, mostBytes);
    const std::uint32_t frameBytes = format_.frameBytes();
    Header header;
    header.text("RIFF").number(data + headerBytes - 8, 4).text("WAVE");
    header.text("fmt ").number(16, 4);
    header.number(isFloat(format_.format) ? floatSamples : integerSamples, 2);
    header.number(format_.channels, 2).number(format_.rate_Hz, 4);
    header.number(std::uint64_t(format_.rate_Hz) * frameBytes, 4).number(frameBytes, 2);
    header.number(format_.sampleBits, 2).text("data").number(data, 4);
    if (std::fwrite(header.bytes().data(), 1, header.bytes().size(), file_) != headerBytes)
        failed_ = true;
}

void WaveFile::append(const std::uint8_t* frames, std::size_t bytes) {
    if (failed_)
        return;
    std::size_t written = 0;
    if (format_.format == SNDRV_PCM_FORMAT_S24_LE) {
        // Three bytes of four, the low ones: a WAV file has them at the top.
        std::vector<std::uint8_t> moved(bytes);
        for (std::size_t i = 0; i + 4 <= bytes; i += 4)
            std::memcpy(moved.data() + i + 1, frames + i, 3);
        written = std::fwrite(moved.data(), 1, bytes, file_);
    } else {
        written = std::fwrite(frames, 1, bytes, file_);
    }
    bytes_ += written;
    failed_ = written != bytes;
}

}  // namespace board
