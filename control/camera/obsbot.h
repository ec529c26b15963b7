// The camera's remote control: so far the part that the supervisor reads.
#pragma once

#include <atomic>

class ObsBot {
  public:
    // 1 while the camera was put to sleep from the remote control, else 0. Outlives every object;
    // written and read by several threads.
    static std::atomic<int> dormantStatus;
};
