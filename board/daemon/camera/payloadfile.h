// A copy of what a camera delivers, one payload behind the other: a .mjpeg or .h264 file that
// players and decoders take. Loop thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

namespace board {

class PayloadFile {
  public:
    // Empty on success, else an error line.
    std::string start(const std::string& path);
    std::string stop();
    // H.264 is written from the first payload on that brings parameter sets.
    void add(std::uint32_t fourcc, const std::uint8_t* payload, std::size_t length);

  private:
    std::ofstream file_;
    std::string path_;
    bool begun_ = false;
};

}  // namespace board
