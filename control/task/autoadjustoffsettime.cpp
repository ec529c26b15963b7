#include "control/task/autoadjustoffsettime.h"

#include "control/task/logline.h"
#include "control/task/monotonictime.h"

autoAdjustOffsetTime::autoAdjustOffsetTime(unsigned int limit) : limit(limit) {}

void autoAdjustOffsetTime::updateOffsetTime_start() {
    if (count < limit) {
        startTime = monotonicNow();
        started = true;
    }
}

void autoAdjustOffsetTime::updateOffsetTime_end() {
    if (count < limit) {
        if (started) {
            endTime = monotonicNow();
            sumMs += elapsedMs(startTime, endTime);
            ++count;
            averageMs = sumMs / count;
        } else {
            logOut("autoAdjustOffsetTime invalid");
        }
    }
    started = false;
}
