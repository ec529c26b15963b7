// Writes what a card plays to a WAV file, and beside it a table (.csv) of when each period was
// played. Loop thread only; the files are written by the card's worker.
#pragma once

#include "board/daemon/eventloop.h"
#include "board/daemon/jobworker.h"
#include "board/daemon/sound/hardwarespace.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace board {

class SoundRecorder {
  public:
    struct Result {
        std::string error;  // one line; empty on success
        std::string path;   // of the (first) WAV file
        std::uint64_t frames = 0;
    };
    using Done = std::function<void(const Result&)>;

    // Both must outlive the recorder.
    SoundRecorder(EventLoop& loop, JobWorker& worker);
    ~SoundRecorder();

    // The file is made when the first frame comes. Another format later goes to a file of its own
    // (sound.wav, sound-2.wav). An error line; empty when it has begun.
    std::string start(const std::string& path);
    void stop(Done done);  // when the files are finished
    bool active() const { return job_ != nullptr; }

    // What the stream does.
    void format(const SoundFormat& format) { format_ = format; }
    void frames(const std::uint8_t* frames, std::uint32_t count);
    void event(const char* what, std::int64_t board_ns, std::int64_t left);

  private:
    struct Job;
    void flush();

    EventLoop& loop_;
    JobWorker& worker_;
    std::shared_ptr<Job> job_;
    SoundFormat format_, fileFormat_;
    std::vector<std::uint8_t> pending_;
    std::string pendingLines_;
    std::uint64_t count_ = 0;  // frames so far
    bool changed_ = false;     // another file is due before pending_
};

}  // namespace board
