#include "tests/unit/camera/fakeobsbot.h"

#include "control/camera/obsbot.h"

#include <utility>

ObsBotLife obsBotLife;

std::atomic<int> ObsBot::dormantStatus{0};

ObsBot::ObsBot(std::string path) : videoDevicePath(std::move(path)) {
    obsBotLife.made.push_back(videoDevicePath);
    ++obsBotLife.living;
}

ObsBot::~ObsBot() {
    --obsBotLife.living;
}

int ObsBot::svc() {
    return 0;
}
