// The one scan-out engine of the card: its mode, its picture, its vertical blanks.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/display/buffers.h"
#include "board/daemon/display/eventsink.h"
#include "board/daemon/display/modetiming.h"
#include "board/daemon/display/screenview.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace board {

using FramebufferRef = std::shared_ptr<const Framebuffer>;

// Runs on the loop's thread. Vertical blanks are counted from the start of the run; the count
// survives changes of mode.
class Crtc {
  public:
    // Another picture came on screen at this board time, or none is there any more; `flip`: by a
    // page flip.
    using Listener = std::function<void(std::int64_t board_ns, bool flip)>;

    Crtc(Board& board, std::uint32_t id, Listener listener);
    ~Crtc();
    Crtc(const Crtc&) = delete;
    Crtc& operator=(const Crtc&) = delete;

    bool on() const { return framebuffer_ != nullptr; }
    const drm_mode_modeinfo& mode() const { return mode_; }  // of a CRTC that is on
    std::uint32_t x() const { return x_; }
    std::uint32_t y() const { return y_; }
    const FramebufferRef& onScreen() const { return framebuffer_; }  // null while off
    // The picture of the last accepted request: where a pending flip leads to.
    const FramebufferRef& latest() const { return pending_ ? pending_->framebuffer : framebuffer_; }
    bool uses(std::uint32_t framebufferId) const;

    // At once; a pending flip is over. The mode must be usable and fit into the picture.
    void set(const drm_mode_modeinfo& mode, FramebufferRef framebuffer, std::uint32_t x,
             std::uint32_t y);
    void off();
    // Power saving: the mode stays, the screen is black, flips are refused.
    void setAsleep(bool asleep);
    bool asleep() const { return asleep_; }

    bool flipPending() const { return pending_.has_value(); }
    // Completes at the next vertical blank. Only while on and with none pending. Room for the event
    // is reserved by the caller.
    void flip(FramebufferRef framebuffer, const EventTarget& target);
    void holdFlips(bool held);
    void loseEvents(unsigned count);  // of the next flips, which complete all the same

    std::uint64_t vblankCount() const;
    std::int64_t vblankTime_ns(std::uint64_t count) const;
    // An event at the vertical blank `count`, at once when it has passed.
    void notifyAt(std::uint64_t count, const EventTarget& target);

    ScreenView screen() const;  // format 0 while off
    // The mark that the picture on screen carried when its flip was asked for; nothing when it had
    // none or came in another way.
    const std::optional<Stamp>& askedMark() const { return askedMark_; }

  private:
    struct Flip {
        FramebufferRef framebuffer;
        EventTarget target;
        std::uint64_t due;  // vertical blank
        std::optional<Stamp> mark;
    };
    struct Waiter {
        std::uint64_t due;
        EventTarget target;
    };

    ScreenView viewOf(const Framebuffer& source) const;
    void send(std::uint32_t type, const EventTarget& target, std::uint64_t count,
              std::int64_t board_ns) const;
    void finishPending(std::uint64_t count, std::int64_t board_ns);
    void wakeWaiters(std::uint64_t count);
    void endWaiting(std::uint64_t count);  // nothing comes after `count`
    void serveVblank();
    void arm();

    Board& board_;
    std::uint32_t id_;
    Listener listener_;
    drm_mode_modeinfo mode_{};
    FramebufferRef framebuffer_;
    std::optional<Stamp> askedMark_;
    std::uint32_t x_ = 0, y_ = 0;
    bool asleep_ = false, held_ = false;
    unsigned eventsToLose_ = 0;
    VblankTiming timing_;
    std::uint64_t countAtStart_ = 0;  // vertical blanks before timing_ began
    std::optional<Flip> pending_;
    std::vector<Waiter> waiters_;
    EventLoop::TimerId timer_ = 0;  // 0: none
};

}  // namespace board
