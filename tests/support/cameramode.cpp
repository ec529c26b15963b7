#include "tests/support/cameramode.h"

#include <filesystem>
#include <sstream>

#include "tests/support/environment.h"

namespace support {

namespace {

std::string cameraOf(const CameraMode& mode) {
    std::ostringstream text;
    const bool compressed = std::string(mode.fourcc) != "YUYV";
    text << R"({"name": "bench", "card": "Bench Camera", "controls": [], "formats": [{"fourcc": ")"
         << mode.fourcc << R"(", "description": "Bench", "compressed": )"
         << (compressed ? "true" : "false") << R"(, "encoding": {)" << mode.encoding << "}";
    if (mode.imageBytes != 0) {
        text << R"(, "imageBytes": )" << mode.imageBytes;
    }
    text << R"(, "sizes": [{"width": )" << mode.width << R"(, "height": )" << mode.height
         << R"(, "intervals": [[1, )" << mode.fps << "]]}]}]}";
    return text.str();
}

// 60 Hz with short blanks.
std::string displayOf(const CameraMode& mode) {
    const std::uint32_t width = mode.displayWidth, height = mode.displayHeight;
    const std::uint32_t htotal = width + 160, vtotal = height + 40;
    std::ostringstream text;
    text
        << R"({"name": "bench", "modes": [{"name": ")" << width << "x" << height
        << R"(", "clock": )" << (std::uint64_t(htotal) * vtotal * 60 + 500) / 1000
        << R"(, "hdisplay": )" << width << R"(, "hsyncStart": )" << width + 48
        << R"(, "hsyncEnd": )" << width + 80 << R"(, "htotal": )" << htotal << R"(, "vdisplay": )"
        << height << R"(, "vsyncStart": )" << height + 3 << R"(, "vsyncEnd": )" << height + 8
        << R"(, "vtotal": )" << vtotal
        << R"(, "vrefresh": 60, "flags": ["phsync", "nvsync"], "type": ["preferred", "driver"]}]})";
    return text.str();
}

}  // namespace

ModeScenario::ModeScenario(const CameraMode& mode)
    : folder_(makeTemporaryFolder("mode-")), path_(folder_ + "/scenario.json") {
    writeFile(path_, R"({"name": "bench", "camera": )" + cameraOf(mode) + R"(, "display": )" +
                         displayOf(mode) + R"(, "recording": ")" + mode.recording + R"("})");
}

ModeScenario::~ModeScenario() {
    std::filesystem::remove_all(folder_);
}

}  // namespace support
