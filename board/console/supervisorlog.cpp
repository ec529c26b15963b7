#include "board/console/supervisorlog.h"

#include "board/daemon/jsonfields.h"

namespace board::console {

namespace {

constexpr std::size_t mostTransitions = 64;  // the diagram has fewer; a broken log may have more

}  // namespace

void SupervisorLog::take(const std::string& line, std::uint64_t now_ms) {
    const std::string start = "statue: ", arrow = " ==> ";
    const std::size_t middle = line.find(arrow);
    if (line.compare(0, start.size(), start) != 0 || middle == std::string::npos)
        return;
    const std::string from = line.substr(start.size(), middle - start.size());
    state_ = line.substr(middle + arrow.size());
    if (transitions_.size() >= mostTransitions)
        return;
    Seen& seen = transitions_[{from, state_}];
    ++seen.count;
    seen.last_ms = now_ms;
}

std::string SupervisorLog::json() const {
    std::string list;
    for (const auto& [ends, seen] : transitions_) {
        JsonFields entry;
        entry.add("from", ends.first).add("to", ends.second);
        entry.add("count", seen.count).add("last_ms", seen.last_ms);
        list += (list.empty() ? "" : ", ") + entry.object();
    }
    return JsonFields().add("state", state_).addRaw("transitions", "[" + list + "]").object();
}

}  // namespace board::console
