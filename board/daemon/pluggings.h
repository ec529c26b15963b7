// What has been plugged in of one device: the plugging in place, and those taken away that clients
// still have open. Loop thread only.
#pragma once

#include <algorithm>
#include <memory>
#include <vector>

namespace board {

// Plugged: unplug(), number(), openHandles().
template <typename Plugged>
struct Pluggings {
    void unplug() {
        if (current == nullptr)
            return;
        current->unplug();
        earlier.push_back(current);
        current.reset();
    }

    void forgetClosed() {
        earlier.erase(std::remove_if(earlier.begin(), earlier.end(),
                                     [](const auto& one) { return one->openHandles() == 0; }),
                      earlier.end());
    }

    // The first one from `first` that nothing earlier holds.
    unsigned freeNumber(unsigned first) {
        forgetClosed();
        const auto taken = [&] {
            return std::any_of(earlier.begin(), earlier.end(),
                               [&](const auto& one) { return one->number() == first; });
        };
        while (taken())
            ++first;
        return first;
    }

    unsigned openHandles() const {
        unsigned count = current != nullptr ? current->openHandles() : 0;
        for (const auto& one : earlier)
            count += one->openHandles();
        return count;
    }

    std::shared_ptr<Plugged> current;
    std::vector<std::shared_ptr<Plugged>> earlier;  // unplugged, perhaps still open
};

}  // namespace board
