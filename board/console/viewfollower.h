// Follows one view of the board as long as somebody wants it.
#pragma once

#include "board/console/viewsocket.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

namespace board::console {

// All functions are called on the follower's thread.
struct ViewWish {
    std::string folder;  // the board's run folder
    wire::ViewKind kind = wire::ViewKind::flips;
    std::function<bool()> wanted;  // whether there is any use in it now
    std::function<void(const ViewPacket&)> take;
    std::function<void()> ended;  // nothing more comes for now
    // At most this often, and one at a time; 0: packets of this kind come without being asked for.
    std::chrono::microseconds period{0};
    // Where a packet means nothing without those before it: true while all of them are needed.
    std::function<bool()> wholeStream = [] { return false; };
};

// Connects when it is wanted, leaves when it is not, and tries again when the board has gone.
class ViewFollower {
  public:
    explicit ViewFollower(ViewWish wish);
    ~ViewFollower();
    ViewFollower(const ViewFollower&) = delete;
    ViewFollower& operator=(const ViewFollower&) = delete;

  private:
    using Clock = std::chrono::steady_clock;

    void run();
    void follow();
    bool goesOn() const { return !stop_ && wish_.wanted(); }

    ViewWish wish_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

}  // namespace board::console
