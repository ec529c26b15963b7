// The screen as a video file, encoded on a thread of its own.
#pragma once

#include "board/daemon/display/screenview.h"
#include "board/daemon/display/videofile.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace board {

class Recorder {
  public:
    // Checks that the file can be made; *problem is an error line, empty on success. The picture is
    // `width` by `height` (made even) throughout; other sizes are scaled into it.
    Recorder(const std::string& path, std::uint32_t width, std::uint32_t height,
             std::string* problem);
    ~Recorder();  // ends the file if stop() was not called; waits for the thread

    // On the loop's thread, when a picture came on screen: takes a copy if the encoder is free and
    // a thirtieth of a second of machine time has passed; never waits.
    void offer(const ScreenView& view, std::int64_t machine_ns, std::int64_t board_ns);
    // Ends the file; `finished` gets an error line, empty on success, on the recorder's thread.
    // Call once.
    void stop(std::function<void(const std::string&)> finished);

  private:
    void work();

    VideoFile file_;               // used by the thread alone once it runs
    std::int64_t nextDue_ns_ = 0;  // machine time; loop's thread

    // The copy belongs to the loop's thread while `free_`, else to the encoder's.
    std::atomic<bool> free_{true};
    Snapshot copy_;
    std::int64_t copyTime_ns_ = 0;  // board time

    std::mutex lock_;
    std::condition_variable changed_;
    bool stopping_ = false;
    std::function<void(const std::string&)> finished_;
    std::thread thread_;
};

}  // namespace board
