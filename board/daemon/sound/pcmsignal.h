// The descriptor that a client of a sound stream waits on. It reports readable (capture) or
// writable (playback) on demand, and raises the signal that its owner asked for with O_ASYNC. Loop
// thread only.
#pragma once

namespace board {

class PcmSignal {
  public:
    explicit PcmSignal(bool playback);  // throws std::system_error when descriptors run out
    ~PcmSignal();
    PcmSignal(const PcmSignal&) = delete;
    PcmSignal& operator=(const PcmSignal&) = delete;

    int clientDescriptor() const { return client_; }  // owned by this object

    void setReady(bool ready);
    bool ready() const { return ready_; }
    // The same with one asynchronous notification, whether something is ready or not.
    void notify(bool ready);

  private:
    void fill();
    void drain();

    bool playback_;
    int client_ = -1;  // the same socket as the client's copy
    int peer_ = -1;
    bool ready_;
};

}  // namespace board
