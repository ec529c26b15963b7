// What a context and its decoder share, and how they wait.
#pragma once

#include <rockchip/rk_mpi.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>

#include "engine/mpp/buffer.h"

namespace mpp {

struct Settings {
    RK_S64 inputTimeout = 0;  // as the commands take it: 0 no wait, negative for ever, positive ms
    RK_S64 outputTimeout = 0;
    bool splitPackets = false;
    bool hideErrors = false;
    Ref<Group> group;              // where frames get their memory
    unsigned changesAnswered = 0;  // times that an information change was acknowledged
};

struct Counts {
    RK_U32 packetsIn = 0;
    RK_U32 worked = 0;
    RK_U32 framesOut = 0;
    RK_U64 bytesIn = 0;
    std::chrono::steady_clock::time_point first;  // packet
};

// The doorbell's mutex guards all else.
struct Channel {
    std::shared_ptr<Doorbell> doorbell = std::make_shared<Doorbell>();
    Settings settings;
    Counts counts;
    unsigned epoch = 0;   // resets so far
    int waiting = 0;      // calls of the program that wait
    bool ending = false;  // no call of the program may begin any more

    // The program's wait. MPP_OK once `ready()` holds; MPP_ERR_TIMEOUT when the time (as in
    // Settings) has passed; MPP_NOK when the context was reset or is being destroyed meanwhile.
    template <class Ready>
    MPP_RET wait(std::unique_lock<std::mutex>& lock, RK_S64 timeout, Ready ready);
    void countPacket(std::size_t bytes);
};

template <class Ready>
MPP_RET Channel::wait(std::unique_lock<std::mutex>& lock, RK_S64 timeout, Ready ready) {
    if (ready()) {
        return MPP_OK;
    }
    if (timeout == 0) {
        return MPP_ERR_TIMEOUT;
    }
    const unsigned begun = epoch;
    const auto over = [&] { return ending || epoch != begun || ready(); };
    constexpr RK_S64 longest = 1000LL * 3600 * 24 * 365;  // the clock's range ends somewhere
    ++waiting;
    bool came = true;
    if (timeout < 0) {
        doorbell->bell.wait(lock, over);
    } else {
        const std::chrono::milliseconds time(std::min(timeout, longest));
        came = doorbell->bell.wait_for(lock, time, over);
    }
    --waiting;
    if (ending || epoch != begun) {
        doorbell->bell.notify_all();  // who ends the context waits for the last waiter
        return MPP_NOK;
    }
    return came ? MPP_OK : MPP_ERR_TIMEOUT;
}

}  // namespace mpp
