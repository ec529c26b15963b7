// Scenarios of one camera mode on a display of one mode, written when they are needed.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

namespace support {

struct CameraMode {
    const char* name;    // of a test
    const char* fourcc;  // "MJPG", "H264", "YUYV"
    std::uint32_t width, height, fps;
    const char* encoding;  // members of the scenario's object: "\"bFrames\": 2"
    std::uint32_t displayWidth, displayHeight;
    std::uint32_t imageBytes = 0;  // of a buffer; 0: what the board announces by itself
    const char* recording = "";    // empty: the default one
};

inline void PrintTo(const CameraMode& one, std::ostream* out) {
    *out << one.name;
}

// The file lives as long as the object.
class ModeScenario {
  public:
    explicit ModeScenario(const CameraMode& mode);
    ~ModeScenario();
    ModeScenario(const ModeScenario&) = delete;
    ModeScenario& operator=(const ModeScenario&) = delete;

    const std::string& path() const { return path_; }

  private:
    std::string folder_;
    std::string path_;
};

}  // namespace support
