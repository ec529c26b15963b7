// A display on a board of its own, and a client that speaks to its card as the daemon would.
#pragma once

#include "board/daemon/display.h"

#include <drm.h>
#include <drm_fourcc.h>
#include <drm_mode.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace board::test {

// 1920x1080 at 60 Hz by default; other sizes get small blankings at about the same refresh.
DisplayMode mode1080p60();
DisplayMode smallMode(std::uint16_t width, std::uint16_t height, std::uint32_t refresh_Hz);
DisplayDescription displayWith(std::vector<DisplayMode> modes);

// The loop runs on a thread; run() executes something there and waits for it.
class FakeBoard final : public Board {
  public:
    explicit FakeBoard(std::uint32_t speed = 1);
    ~FakeBoard() override;

    EventLoop& loop() override { return loop_; }
    const BoardClock& clock() const override { return clock_; }
    void addNode(const std::string& path, unsigned major, unsigned minor, Device& device) override;
    void removeNode(const std::string& /*path*/) override {}
    void setHandleState(std::uint32_t /*slot*/, std::uint32_t /*bits*/) override {}
    void log(const std::string& /*line*/) override {}

    void run(const std::function<void()>& work);

    std::string nodePath;
    unsigned nodeMajor = 0, nodeMinor = 0;
    Device* device = nullptr;

  private:
    EventLoop loop_;
    BoardClock clock_;
    std::thread thread_;
};

// One open descriptor. Every call runs on the loop's thread.
class Client {
  public:
    explicit Client(FakeBoard& board);
    ~Client();

    // The bare call: blocks[i] holds what is sent and how much may come back.
    int call(IoctlCall& ioctlCall);
    template <typename T>
    int call(std::uint32_t request, T& argument) {
        IoctlCall ioctlCall;
        ioctlCall.request = request;
        ioctlCall.argument.resize(sizeof(T));
        ioctlCall.store(argument);
        const int result = call(ioctlCall);
        argument = ioctlCall.load<T>();
        return result;
    }
    Mapping map(std::uint64_t offset, std::uint64_t length);
    int descriptor();
    Handle& handle() { return *handle_; }

    // The next event, or nothing after `timeout_ms`.
    std::optional<drm_event_vblank> event(int timeout_ms = 5000);

    drm_mode_get_connector connector();
    std::vector<drm_mode_modeinfo> modes();
    drm_mode_get_encoder encoder();
    drm_mode_crtc crtc();
    int setCrtc(std::uint32_t framebufferId, const drm_mode_modeinfo& mode);
    int crtcOff();
    int flip(std::uint32_t framebufferId, std::uint64_t userData = 0,
             std::uint32_t flags = DRM_MODE_PAGE_FLIP_EVENT);
    int removeFramebuffer(std::uint32_t framebufferId);

  private:
    FakeBoard& board_;
    std::unique_ptr<Handle> handle_;
};

// A dumb buffer of a client, mapped, with a frame buffer on it.
class Canvas {
  public:
    Canvas(Client& client, std::uint32_t width, std::uint32_t height,
           std::uint32_t format = DRM_FORMAT_NV12);
    ~Canvas();
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    std::uint32_t framebufferId() const { return framebufferId_; }  // 0 when something failed
    std::uint32_t bufferHandle() const { return handle_; }
    std::uint32_t pitch() const { return pitch_; }
    std::uint8_t* pixels() const { return pixels_; }
    // NV12: one colour everywhere.
    void fill(std::uint8_t luma, std::uint8_t cb, std::uint8_t cr);
    // Marks the picture as a camera would; XR24 in grey.
    void stamp(std::uint32_t frame, std::uint32_t time_100us);

  private:
    std::uint32_t width_, height_, format_;
    std::uint32_t handle_ = 0, pitch_ = 0, framebufferId_ = 0;
    std::uint64_t size_ = 0;
    std::uint8_t* pixels_ = nullptr;
};

// Card, display and board in the order in which they must go.
struct Rig {
    explicit Rig(const DisplayDescription& description, bool plugged = true,
                 std::uint32_t speed = 1);
    ~Rig();
    DisplayFigures figures();
    // Waits for an order's answer: its error line, or "no answer".
    std::string await(const std::function<void(std::function<void(const std::string&)>)>& order);

    FakeBoard board;
    std::unique_ptr<Display> display;
};

}  // namespace board::test
