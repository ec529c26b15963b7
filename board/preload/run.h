// The run that this process takes part in: activation, the shared page, the run folder.
#pragma once

#include "board/protocol/sharedpage.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace board::preload {

// Longest run folder that is accepted.
constexpr std::size_t maxRunFolder = 1024;

namespace detail {
constexpr std::uintptr_t undecided = 0;
constexpr std::uintptr_t noBoard = 1;
// One of the above, or the page's address.
// NOLINTNEXTLINE(bugprone-dynamic-static-initializers): a constant initialises it
extern std::atomic<std::uintptr_t> page;
std::uintptr_t attach();
}  // namespace detail

// The board's page; null when this process has no board (variable absent, folder not reachable).
// Decided once, at the first use.
inline wire::SharedPage* boardPage() {
    std::uintptr_t page = detail::page.load(std::memory_order_acquire);
    if (page == detail::undecided)
        page = detail::attach();
    // NOLINTNEXTLINE(performance-no-int-to-ptr): one word holds the state and the address
    return page == detail::noBoard ? nullptr : reinterpret_cast<wire::SharedPage*>(page);
}

// Valid when boardPage() is not null.
const char* runFolder();
std::size_t runFolderLength();

}  // namespace board::preload
