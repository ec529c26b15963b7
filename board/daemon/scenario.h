// What a scenario says: which camera, display and sound cards, with which modes, plugged or not.
// Files lie in board/scenarios/; their form is described in docs/scenarios.md.
#pragma once

#include "board/daemon/inputdescription.h"
#include "board/daemon/ptzdescription.h"
#include "board/daemon/soundlimits.h"
#include "board/media/encoding.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace board {

struct Fraction {  // seconds per frame
    std::uint32_t numerator = 0;
    std::uint32_t denominator = 1;
};

struct CameraSize {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<Fraction> intervals;  // in the camera's order
};

struct CameraFormat {
    std::uint32_t fourcc = 0;
    std::string description;
    bool compressed = false;
    std::vector<CameraSize> sizes;  // in the camera's order, repetitions kept
    Encoding encoding = {};         // of a compressed format
    std::uint32_t imageBytes = 0;   // the longest payload it announces; 0: what webcams announce
};

enum class ControlType { integer, boolean, menu, integerMenu, button, bitmask, controlClass };

struct CameraControl {
    std::uint32_t id = 0;
    std::string name;  // as the driver gives it: "Brightness", "Exposure, Auto"
    ControlType type = ControlType::integer;
    std::int64_t minimum = 0, maximum = 0, step = 1, defaultValue = 0, value = 0;
    std::uint32_t flags = 0;  // V4L2_CTRL_FLAG_...
    std::map<std::int64_t, std::string> menu;
};

struct CameraDescription {
    std::string name;  // the scenario's name for it
    std::string card;  // 31 characters at most
    std::string driver = "uvcvideo";
    std::string busInfo = "usb-0000:00:14.0-1";
    std::uint32_t version = 0x060101;  // major.minor.patch in bytes
    std::vector<CameraFormat> formats;
    std::vector<CameraControl> controls;
    PtzDescription ptz;
    std::vector<ExtensionUnitDescription> units;
    std::string recording;  // media file; empty: the default recording
};

struct DisplayMode {  // the kernel's drm_mode_modeinfo, field by field
    std::string name;
    std::uint32_t clock_kHz = 0;
    std::uint16_t hdisplay = 0, hsyncStart = 0, hsyncEnd = 0, htotal = 0, hskew = 0;
    std::uint16_t vdisplay = 0, vsyncStart = 0, vsyncEnd = 0, vtotal = 0, vscan = 0;
    std::uint32_t vrefresh_Hz = 0;
    std::uint32_t flags = 0;
    std::uint32_t type = 0;
};

struct DisplayDescription {
    std::string name;
    std::uint32_t widthMm = 0, heightMm = 0;
    std::vector<DisplayMode> modes;  // in the connector's order; empty: taken from the EDID
    std::vector<std::uint8_t> edid;  // 128-byte blocks; may be empty
    std::uint32_t possibleCrtcs = 1;
};

struct TimedOrder {
    std::int64_t at_ms = 0;  // board time since the first client program connected
    std::string order;       // one JSON object, as for the order socket
};

struct Scenario {
    std::string name;
    CameraDescription camera;
    DisplayDescription display;
    bool hasCamera = true, cameraPlugged = true;
    bool hasDisplay = true, displayPlugged = true;
    unsigned cameraNumber = 0;            // N of the first /dev/videoN
    SoundDescription microphone, output;  // the camera's card, the board's own
    bool hasMicrophone = false, microphonePlugged = true;
    bool hasOutput = false, outputPlugged = true;
    unsigned microphoneCard = 1;  // its card number; the output is card 0
    std::int32_t microphoneClock_ppm = 0, outputClock_ppm = 0;
    std::string hears;                     // what the microphone hears; empty: a sweep
    std::vector<InputDescription> inputs;  // no two of the same name
    std::uint32_t speed = 1;
    // What a new run folder has under the application's fixed paths: content by path.
    std::map<std::string, std::string> files;
    std::vector<TimedOrder> orders;  // given by themselves; those at 0 before the first client
    std::string document;            // as movableScenario gives it
};

// Read from JSON; camera and display may be named ("logitech-c920-h264") or written in place. A
// camera's file is a scenario too: that camera on the default scenario's display.
// On failure throws std::runtime_error with one line: file, place, what is wrong.
Scenario loadScenario(const std::string& path);
CameraDescription loadCamera(const std::string& path);
DisplayDescription loadDisplay(const std::string& path);
SoundDescription loadSound(const std::string& path);
InputDescription loadInput(const std::string& path);
// The file for a scenario, camera or display given by name or path ("default" -> .../default.json).
// A scenario may have a camera's name. Throws std::runtime_error with one line that lists the known
// names when there is no such file.
std::string findScenario(const std::string& nameOrPath);
std::string findCamera(const std::string& nameOrPath);
std::string findDisplay(const std::string& nameOrPath);
std::string findSound(const std::string& nameOrPath);
std::string findInput(const std::string& nameOrPath);
// Where names are looked up: FOLDER/*.json, FOLDER/cameras/*.json, FOLDER/displays/*.json,
// FOLDER/sound/*.json, FOLDER/inputs/*.json. The default is the source tree's board/scenarios. Not
// thread-safe: set it before loading.
void setScenarioFolder(const std::string& folder);
// Names of a kind ("" scenarios, "/cameras", "/displays", "/sound", "/inputs"), sorted.
std::vector<std::string> knownNames(const std::string& kind);
// "MJPG".
std::string fourccText(std::uint32_t fourcc);

}  // namespace board
