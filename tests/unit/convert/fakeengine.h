// The 2D engine played by the test: notes what it is asked to do.
#pragma once

#include <rga/RockchipRga.h>
#include <functional>
#include <vector>

struct FakeEngine {
    struct Blit {
        rga_info src, dst;
        bool thirdPicture;
    };
    int initialised = 0, released = 0;
    std::vector<Blit> blits;
    std::function<int(const Blit&)> answer;  // 0 when empty

    static FakeEngine& instance();
};
