// The supervisor's state, as its log lines tell it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>

namespace board::console {

// Used by one thread.
class SupervisorLog {
  public:
    // Takes a line of the application's log; others than "statue: A ==> B" are of no interest.
    // `now_ms`: when it came.
    void take(const std::string& line, std::uint64_t now_ms);
    // {"state", "transitions": [{"from", "to", "count", "last_ms"}]}
    std::string json() const;

  private:
    struct Seen {
        std::uint64_t count = 0;
        std::uint64_t last_ms = 0;
    };
    std::string state_ = "STATUE_POLL_NODEVICE";  // where the application begins
    std::map<std::pair<std::string, std::string>, Seen> transitions_;
};

}  // namespace board::console
