#include "board/console/requestguard.h"

#include <algorithm>

namespace board::console {

RequestGuard::RequestGuard(unsigned short port)
    : own_{"127.0.0.1:" + std::to_string(port), "localhost:" + std::to_string(port)} {}

bool RequestGuard::admits(const std::vector<std::string>& hosts,
                          const std::vector<std::string>& origins) const {
    if (hosts.size() != 1 || std::find(own_.begin(), own_.end(), hosts.front()) == own_.end())
        return false;
    return origins.empty() || (origins.size() == 1 && origins.front() == "http://" + hosts.front());
}

}  // namespace board::console
