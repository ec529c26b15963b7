// What outlives a single plugging of a sound card.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/jobworker.h"
#include "board/daemon/sound/cardclock.h"
#include "board/daemon/sound/pcmstream.h"
#include "board/daemon/sound/soundends.h"

#include <cstdint>
#include <memory>
#include <string>

namespace board {

// What a card grants instead of what is asked for; 0: as its description says.
struct SoundGrant {
    std::uint32_t rate_Hz = 0;
    std::uint32_t periodFrames = 0;
};

struct CardState {
    CardState(Board& owner, std::int32_t error_ppm)
        : board(owner), clock(owner, error_ppm), ear(owner, worker), voice(owner, worker) {}

    Board& board;
    CardClock clock;
    StreamFigures played, recorded;
    JobWorker worker;
    Ear ear;      // what listens to playback
    Voice voice;  // what is heard in capture
    SoundGrant grant;
    int openError = 0;          // positive errno of the openings that shall fail
    unsigned openFailures = 0;  // how many still do
    bool openAlwaysFails = false;
    bool asleep = false;
};

}  // namespace board
