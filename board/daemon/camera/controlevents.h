// Control events of one open descriptor: what it subscribed to and what waits for it. Loop thread
// only.
#pragma once

#include <linux/videodev2.h>

#include <cstdint>
#include <map>

namespace board {

class ControlEvents {
  public:
    ControlEvents();  // throws std::system_error when descriptors run out
    ~ControlEvents();
    ControlEvents(const ControlEvents&) = delete;
    ControlEvents& operator=(const ControlEvents&) = delete;

    int descriptor() const {
        return ready_;
    }  // readable while an event waits; owned by this object

    void subscribe(std::uint32_t id, std::uint32_t flags);  // a second time: changes nothing
    void unsubscribe(std::uint32_t id);
    void unsubscribeAll();
    bool subscribed(std::uint32_t id) const { return subscriptions_.count(id) != 0; }
    // Whether a change by this very descriptor comes back to it.
    bool wantsFeedback(std::uint32_t id) const;

    // A later event of the same control replaces a waiting one; what has changed adds up.
    void post(std::uint32_t id, const v4l2_event_ctrl& change, std::int64_t time_ns);
    // The oldest event, or -ENOENT.
    int take(v4l2_event& event);
    void wake();  // one count without an event: the camera is gone

  private:
    struct Subscription {
        std::uint32_t flags = 0;
        bool waiting = false;
        v4l2_event event{};
    };
    void addCount();
    void takeCount();
    unsigned waiting() const;

    int ready_ = -1;
    std::uint32_t sequence_ = 0;
    std::map<std::uint32_t, Subscription> subscriptions_;
};

}  // namespace board
