// One sound device inside the test process: the calls of the code under test to alsa-lib's PCM
// interface are answered here (the functions stand in the test program, before the library's).
#pragma once

#include <alsa/asoundlib.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

// Installs itself as the process's only device. Thread-safe.
class FakePcm {
  public:
    FakePcm();
    ~FakePcm();
    FakePcm(const FakePcm&) = delete;
    FakePcm& operator=(const FakePcm&) = delete;
    static FakePcm& current();

    // Set before use.
    unsigned grantedRate = 0;  // 0: what is asked
    unsigned bufferTimeMax = 1000000;
    snd_pcm_uframes_t periodSize = 1024, bufferSize = 16384;
    unsigned frameBytes = 4;

    // What a function answers instead of doing its work, until cleared.
    void fail(const std::string& function, int error);
    void heal(const std::string& function);

    // Microphone: so many frames are there now; `notify` raises the signal for them.
    void deliver(snd_pcm_uframes_t frames, bool notify = true);
    static void notify();
    void setState(snd_pcm_state_t state);

    // Output: what a write answers; empty: everything is taken.
    std::function<snd_pcm_sframes_t(snd_pcm_uframes_t frames)> onWrite;
    std::function<int()> onWait;
    std::vector<unsigned char> written() const;

    std::vector<std::string> calls() const;  // in order, with what was asked
    unsigned count(const std::string& call) const;
    bool waitFor(const std::string& call, unsigned times = 1);  // false after a long time
    int openHandles() const { return open_; }

    // The answers; `what` is the function's name with its argument.
    int answer(const std::string& function, const std::string& argument = "");
    snd_pcm_sframes_t avail();
    snd_pcm_sframes_t read(void* buffer, snd_pcm_uframes_t frames);
    snd_pcm_sframes_t write(const void* data, snd_pcm_uframes_t frames);
    int start();
    int prepare();
    snd_pcm_state_t state() const { return state_; }
    snd_pcm_t* handle() { return reinterpret_cast<snd_pcm_t*>(this); }

    snd_async_callback_t callback = nullptr;
    void* callbackData = nullptr;
    std::atomic<int> open_{0};
    std::atomic<unsigned> callbackRuns{0};  // avail was asked for

  private:
    mutable std::mutex lock_;
    std::condition_variable changed_;
    std::map<std::string, int> failing_;
    std::vector<std::string> calls_;
    std::vector<unsigned char> written_;
    snd_pcm_uframes_t available_ = 0;
    std::uint32_t position_ = 0;
    std::atomic<snd_pcm_state_t> state_{SND_PCM_STATE_PREPARED};
};

// Blocks the notification in the calling thread and all that it starts, as the application's main
// does; gives back what was before.
class BlockedNotification {
  public:
    BlockedNotification();
    ~BlockedNotification();

  private:
    sigset_t before_;
};
