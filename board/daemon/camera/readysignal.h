// The descriptor that a client of the camera waits on: readable as often as there is something to
// fetch, hung up when the camera is gone. Loop thread only.
#pragma once

namespace board {

class ReadySignal {
  public:
    ReadySignal();  // throws std::system_error when descriptors run out
    ~ReadySignal();
    ReadySignal(const ReadySignal&) = delete;
    ReadySignal& operator=(const ReadySignal&) = delete;

    int clientDescriptor() const { return client_; }  // owned by this object

    // From now on exactly `count` bytes lie in the client's end.
    void set(unsigned count);
    // The client's end reports readable and hung up, for ever.
    void hangUp();

  private:
    int client_ =
        -1;  // the same socket as the client's copy: what it would read is taken back here
    int peer_ = -1;
    unsigned count_ = 0;
};

}  // namespace board
