// Keeps the bulletin: asks the board how it is, follows the application's log.
#pragma once

#include "board/console/agestatistics.h"
#include "board/console/bulletin.h"
#include "board/console/loglines.h"
#include "board/console/logtail.h"
#include "board/console/orderclient.h"
#include "board/console/supervisorlog.h"

#include <rapidjson/document.h>

#include <deque>
#include <functional>
#include <string>
#include <thread>

namespace board::console {

struct ReporterSources {
    std::string log, err;  // the application's files
    const OrderClient& orders;
    const LogLines& knownLines;
    AgeStatistics& age;
    // Members of the state's "sound": "\"microphone\": {...}, \"output\": {...}".
    std::function<std::string()> soundLevels;
};

// Works on a thread of its own as long as it lives. Five states a second, one while nobody reads.
class Reporter {
  public:
    Reporter(const ReporterSources& sources, Bulletin& bulletin);
    ~Reporter();
    Reporter(const Reporter&) = delete;
    Reporter& operator=(const Reporter&) = delete;

  private:
    void run();
    void followLog(LogTail& tail, const char* stream);
    void reportState();
    void rollHistory();

    ReporterSources sources_;
    Bulletin& bulletin_;
    LogTail out_, err_;
    SupervisorLog supervisor_;
    std::deque<std::string> ages_, onTheWay_;  // JSON of each of the last 60 seconds
    std::string lastOnTheWay_ = "null";
    std::uint64_t lostBefore_ = 0, lostNow_ = 0;  // the camera's count a second ago, and now
    int stopEvent_;
    std::thread thread_;
};

}  // namespace board::console
