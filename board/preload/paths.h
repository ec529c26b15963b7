// Where a path of the program under test really leads.
#pragma once

#include "board/protocol/sharedpage.h"

#include <linux/limits.h>

#include <cstddef>

namespace board::preload {

enum class Place {
    host,       // not ours: the path as it was given
    mapped,     // a file of the run folder stands in
    directory,  // a folder of device nodes; its stand-in in the run folder lists it
    node,       // a device node of the board
    absent,     // would be a device node, but the board has none: the host's is never seen
};

class Located {
  public:
    // `path` may be null (the host then says EFAULT). Kept by pointer where it needs no change.
    explicit Located(const char* path);

    Place place() const { return place_; }
    // What to hand to libc: the path itself or its stand-in (mapped, directory).
    const char* path() const { return path_; }
    const wire::NodeEntry& node() const { return *node_; }  // Place::node only

    // For calls that change or follow files: the path to use, or null with errno set.
    const char* usable() const;

  private:
    void standIn(const char* path, Place place);
    void find(wire::SharedPage& page, const char* path);

    Place place_ = Place::host;
    const char* path_;
    const wire::NodeEntry* node_ = nullptr;
    char buffer_[PATH_MAX];
};

// The same as a call's path argument: host paths and stand-ins go to `next`, ours fail.
template <typename Next, typename... Rest>
auto onPath(Next& next, const char* path, Rest... rest) {
    const Located where(path);
    const char* usable = where.usable();
    return usable != nullptr ? next(usable, rest...) : -1;
}

}  // namespace board::preload
