// A virtual board for one test: its daemon, its run folder, its orders.
#pragma once

#include "tests/support/process.h"

#include <rapidjson/document.h>

#include <cstdint>
#include <string>
#include <vector>

namespace support {

struct CameraFigures {
    std::uint64_t delivered = 0;
    std::uint64_t lost = 0;
    std::uint32_t width = 0, height = 0;
    bool streaming = false;
    unsigned openHandles = 0;
    std::string node;  // empty while unplugged
};

struct DisplayFigures {
    std::uint64_t flips = 0, shown = 0, repeated = 0, skipped = 0, outOfOrder = 0;
    std::uint64_t overwritten = 0;
    std::uint32_t lastFrame = 0;
    double latencyMedian_ms = 0, latencyP95_ms = 0, latencyP99_ms = 0;
    std::string mode;  // empty when no CRTC is set
};

// One direction of a sound card.
struct SoundFigures {
    bool open = false;
    std::string state;   // "RUNNING", ...; empty while nobody has it open
    std::string format;  // "S16_LE"; empty while nothing is chosen
    std::uint32_t rate = 0, channels = 0, periodFrames = 0, bufferFrames = 0;
    std::uint64_t frames = 0, periods = 0, starts = 0, xruns = 0, missing = 0;
    std::uint64_t queuedFrames = 0;  // between the client and the card
};

// Where a pan-tilt-zoom camera looks and how it is.
struct PtzFigures {
    int pan = 0, tilt = 0, zoom = 0;
    int panSpeed = 0, tiltSpeed = 0, zoomSpeed = 0;
    bool asleep = false, tracking = false;
};

// Something that the camera was told.
struct Told {
    std::uint64_t time_ns = 0;  // board time
    int result = 0;             // 0, or -errno of the call
    std::string control;        // "0x009a0920"; empty: a write to an extension unit
    int asked = 0, given = 0;   // a control's value, before and after the driver's limits
    unsigned unit = 0, selector = 0;
    std::string bytes;  // hexadecimal

    // "0x009a0920=10" or "2/3:0100...", zeros at the end left out; with " error -N" after it.
    std::string text() const;
};

// A remote's receiver or another input device.
struct InputFigures {
    struct Write {
        std::uint64_t time_ns = 0;  // board time
        unsigned type = 0, code = 0;
        int value = 0;
    };
    std::string device, node;  // node: empty while unplugged
    std::vector<std::string> keysDown;
    std::vector<unsigned> ledsLit;
    std::vector<Write> writes;  // what clients wrote to the node
};

// Ends with the object: the daemon must end with 0 on SIGTERM and leave no socket behind, else the
// running test fails.
class Board {
  public:
    // `scenario` is a name or a path. Throws std::runtime_error when the board does not come up.
    explicit Board(const std::string& scenario, unsigned speed = 1);
    ~Board();
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    const std::string& folder() const { return folder_; }
    unsigned speed() const { return speed_; }
    Process& daemon() { return *daemon_; }
    // Where the application's fixed path lies on this board.
    std::string rootPath(const std::string& path) const { return folder_ + "/root" + path; }

    // One line of JSON there and one back. Fails the running test when the daemon refuses.
    rapidjson::Document order(const std::string& json);
    // The same without the failure: for orders that shall be refused.
    rapidjson::Document tryOrder(const std::string& json);

    void plug(const std::string& device);  // "camera", "display", "microphone", "remote", ...
    void unplug(const std::string& device);
    // Another device in the place of this one, or a further input device.
    void plug(const std::string& device, const std::string& description);
    void stallCamera(bool stalled);
    void stall(const std::string& device, bool stalled);
    void holdFlips(bool held);
    void loseFlip();
    // The nth call from now (from 1) fails, and the ones after it up to `count` (0: all).
    void fail(const std::string& ioctlName, unsigned nth, int error, unsigned count = 1);
    void clearFaults();
    void park(const std::string& call, const std::string& thread);
    void unpark();
    bool waitForPark(Milliseconds patience);  // until a park in force holds a call
    void setPayload(std::uint32_t bytes, unsigned count);
    void setRecording(const std::string& recording);
    void stepClock(std::int64_t seconds);
    // Sound cards: "microphone" or "output".
    void setClockError(const std::string& device, std::int32_t ppm);
    void xrun(const std::string& device);
    void suspend(const std::string& device, bool brief = false);
    void grant(const std::string& device, std::uint32_t rate, std::uint32_t period);  // 0: any
    void failOpenings(const std::string& device, int error, unsigned count = 1);      // 0: all
    void hear(const std::string& source);  // a generator or a media file
    void recordSound(const std::string& path);
    std::uint64_t stopSound();  // frames in the file
    // A key ("W") goes down or up; the board time of that, in ns. `device` empty: the remote.
    std::uint64_t press(const std::string& key, const std::string& device = "");
    std::uint64_t release(const std::string& key, const std::string& device = "");
    // Down now, up after `duration` of board time: returns then.
    void hold(const std::string& key, Milliseconds duration, const std::string& device = "");
    PtzFigures ptz();
    std::vector<Told> told(std::uint64_t from = 0);  // number `from` and later
    InputFigures input(const std::string& device);
    void resetFigures();
    CameraFigures camera();
    DisplayFigures display();
    SoundFigures sound(const std::string& device);  // its capture or its playback
    bool waitForSound(const std::string& device,
                      const std::function<bool(const SoundFigures&)>& wanted,
                      Milliseconds patience);
    // Waits until `wanted` holds for the figures; false after the deadline (scaled).
    bool waitForDisplay(const std::function<bool(const DisplayFigures&)>& wanted,
                        Milliseconds patience);
    bool waitForCamera(const std::function<bool(const CameraFigures&)>& wanted,
                       Milliseconds patience);
    bool waitForPtz(const std::function<bool(const PtzFigures&)>& wanted, Milliseconds patience);

  private:
    void connect();
    std::string exchange(const std::string& line);

    std::string folder_;
    unsigned speed_;
    std::unique_ptr<Process> daemon_;
    int socket_ = -1;
    std::string received_;
};

}  // namespace support
