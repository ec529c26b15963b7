#include "board/daemon/faults.h"

namespace board {

bool Faults::add(const std::string& ioctlName, unsigned nth, int error, unsigned count) {
    const std::uint32_t request = ioctlNumber(ioctlName);
    if (request == 0 || nth == 0 || error <= 0)
        return false;
    rules_.push_back({request, nth - 1, count, count == 0, error});
    return true;
}

void Faults::clear() {
    rules_.clear();
}

int Faults::check(std::uint32_t request) {
    int error = 0;
    for (Rule& rule : rules_) {
        if (rule.request != request)
            continue;
        // Every rule counts every call, also one that another rule lets fail.
        if (rule.skip > 0) {
            --rule.skip;
        } else if (rule.endless || rule.remaining > 0) {
            if (!rule.endless)
                --rule.remaining;
            if (error == 0)
                error = rule.error;
        }
    }
    return error;
}

}  // namespace board
