// A media file's video stream, picture after picture, scaled and converted. One thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace board {

class DecodedFile {
  public:
    // Throws std::runtime_error with one line when the file cannot be opened or has no video.
    explicit DecodedFile(const std::string& path);
    ~DecodedFile();
    DecodedFile(const DecodedFile&) = delete;
    DecodedFile& operator=(const DecodedFile&) = delete;

    // The next picture in this raw format (a V4L2 fourcc), planes and lines without gaps, BT.601 in
    // limited range. False at the end of the stream.
    bool next(std::uint32_t fourcc, std::uint32_t width, std::uint32_t height,
              std::uint8_t* destination);

  private:
    struct Library;
    bool decode();

    std::string path_;
    std::unique_ptr<Library> library_;
};

}  // namespace board
