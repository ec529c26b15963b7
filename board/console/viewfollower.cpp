#include "board/console/viewfollower.h"

#include <algorithm>

namespace board::console {

namespace {

constexpr auto look = std::chrono::milliseconds(50);
constexpr unsigned streamCredit = 8;

}  // namespace

ViewFollower::ViewFollower(ViewWish wish) : wish_(std::move(wish)), thread_([this] { run(); }) {}

ViewFollower::~ViewFollower() {
    stop_ = true;
    thread_.join();
}

void ViewFollower::run() {
    while (!stop_) {
        if (goesOn())
            follow();
        std::this_thread::sleep_for(look);
    }
}

void ViewFollower::follow() {
    ViewSocket view(wish_.folder, wish_.kind);
    ViewPacket packet;
    Clock::time_point due = Clock::now();
    unsigned granted = 0;  // and not answered
    while (goesOn()) {
        const bool byCredit = wish_.period.count() > 0;
        const unsigned wanted = wish_.wholeStream() ? streamCredit : 1;
        const Clock::time_point now = Clock::now();
        auto patience = look;
        if (byCredit && granted < wanted && (wanted > 1 || now >= due)) {
            // Regular on the average, and not in a hurry after a standstill.
            due = std::max(due + wish_.period, now);
            view.grant();
            ++granted;
            continue;
        }
        if (byCredit && granted == 0)
            patience = std::min(look, std::chrono::ceil<std::chrono::milliseconds>(due - now));
        const ViewSocket::Event event = view.receive(packet, patience);
        if (event == ViewSocket::Event::gone)
            break;
        if (event != ViewSocket::Event::packet)
            continue;
        granted -= granted > 0 ? 1 : 0;
        wish_.take(packet);
    }
    wish_.ended();
}

}  // namespace board::console
