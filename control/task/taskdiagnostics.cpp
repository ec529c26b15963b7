// The debugging helpers of TaskBase.
#include "control/task/logline.h"
#include "control/task/monotonictime.h"
#include "control/task/taskbase.h"

#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>

void TaskBase::debugDiffTime_ms(int print, const std::string& tag) {
    const timeval now = monotonicNow();
    const timeval before = exchangeLastTime(now);
    if (print != 0) {
        std::cout.setf(std::ios::showpoint);
        std::cout.precision(10);
        std::ostringstream line;
        line.copyfmt(std::cout);
        line << tag << "diff ms : " << elapsedMs(before, now) << '\n';
        writeOut(line.str());
    }
}

void TaskBase::debugDiffTime_ns(int print) {
    const timeval now = monotonicNow();
    const timeval before = exchangeLastTime(now);
    if (print != 0) {
        // Microseconds, whatever the label says: those who read the log expect both.
        const long long elapsed = static_cast<long long>(now.tv_sec - before.tv_sec) * 1000000 +
                                  (now.tv_usec - before.tv_usec);
        logOut("diff ns : ", static_cast<int>(elapsed));
    }
}

void TaskBase::debugMem() {
    debugMem("/proc/" + std::to_string(gettid()) + "/status");
}

void TaskBase::debugMem(const std::string& statusPath) {
    const std::unique_ptr<FILE, int (*)(FILE*)> status(fopen(statusPath.c_str(), "re"), fclose);
    if (!status) {
        return;
    }
    char word[256];
    while (fscanf(status.get(), "%255s", word) == 1) {
        if (std::strcmp(word, "VmRSS:") == 0) {
            if (fscanf(status.get(), "%255s", word) == 1) {
                logOut("hw memory[", word, "]");
            }
            return;
        }
    }
}
