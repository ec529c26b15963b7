#include "board/daemon/camera/toldlist.h"

#include <algorithm>
#include <utility>

namespace board {

namespace {

constexpr std::size_t mostKept = 20000;

}  // namespace

void ToldList::add(Told told) {
    told_.push_back(std::move(told));
    if (told_.size() <= mostKept)
        return;
    told_.pop_front();
    ++first_;
}

std::vector<Told> ToldList::since(std::uint64_t& from) const {
    from = std::clamp(from, first_, count());
    return {told_.begin() + long(from - first_), told_.end()};
}

}  // namespace board
