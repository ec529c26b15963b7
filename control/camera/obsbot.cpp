#include "control/camera/obsbot.h"

std::atomic<int> ObsBot::dormantStatus{0};
