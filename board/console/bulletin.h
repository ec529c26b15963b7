// What the pages are told: the state, the log, what was before. One writer, many readers.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

namespace board::console {

// Thread-safe. A reader that is slow misses states, and lines that are older than the last 5000;
// it never makes anything wait or grow.
class Bulletin {
  public:
    // How far a page has read.
    struct Reader {
        std::uint64_t line = 0;   // number of the next one
        std::uint64_t state = 0;  // number of the last one
        bool greeted = false;
    };

    // Counts as a reader as long as it lives.
    class Presence {
      public:
        explicit Presence(Bulletin& bulletin);
        ~Presence();
        Presence(const Presence&) = delete;
        Presence& operator=(const Presence&) = delete;

      private:
        Bulletin& bulletin_;
    };

    // `members`: of the line's object, without its number: "\"stream\": \"out\", ...".
    void addLine(const std::string& members);
    void setState(std::string json);
    void setHistory(std::string json);  // for those who come next
    bool hasReaders() const;

    // The events that this reader has not had, in the form of text/event-stream; waits for some
    // until `patience` is over and then has none.
    std::string news(Reader& reader, std::chrono::milliseconds patience);

  private:
    std::string linesFor(Reader& reader);

    mutable std::mutex lock_;
    std::condition_variable changed_;
    std::deque<std::string> lines_;  // objects
    std::uint64_t nextLine_ = 0;
    std::string state_, history_;
    std::uint64_t stateNumber_ = 0;
    unsigned readers_ = 0;
};

}  // namespace board::console
