// One plugging of an input device: what is behind its node, until the last descriptor is closed.
// Loop thread only.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/inputdescription.h"

#include <linux/input.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace board {

class InputHandle;

// What a client wrote to the node.
struct InputWrite {
    std::int64_t time_ns = 0;  // board time
    std::uint16_t type = 0, code = 0;
    std::int32_t value = 0;
};

// What outlives a single plugging.
struct InputRecord {
    std::deque<InputWrite> written;  // the latest ones
    std::uint64_t writtenCount = 0;
};

class PluggedInput : public Device, public std::enable_shared_from_this<PluggedInput> {
  public:
    PluggedInput(Board& board, const InputDescription& description,
                 std::shared_ptr<InputRecord> record, unsigned number);
    ~PluggedInput() override;

    std::unique_ptr<Handle> open(std::uint32_t fileFlags, std::uint32_t pid, int* error) override;

    // Puts the node in place, takes it away for ever.
    void plug();
    void unplug();
    bool gone() const { return gone_; }
    unsigned number() const { return number_; }
    std::string path() const;

    // A key goes down or up. False when it is so already or the device has no such key.
    bool press(std::uint16_t key);
    bool release(std::uint16_t key);
    const std::set<std::uint16_t>& keysDown() const { return keysDown_; }
    const std::set<std::uint16_t>& ledsLit() const { return ledsLit_; }

    // What handles work with. No call of theirs comes here once the device is gone.
    Board& board() { return board_; }
    const InputDescription& description() const { return description_; }
    bool repeats() const { return repeatDelay_ms > 0; }
    int grab(InputHandle& handle, bool wanted);  // EVIOCGRAB: 0 or -errno
    void wrote(const input_event& event);
    void closed(InputHandle& handle);
    // What clients wrote and nobody has looked at yet.
    void takeWrites();

    std::uint32_t repeatDelay_ms, repeatPeriod_ms;  // EVIOCSREP changes them

  private:
    void send(std::uint16_t type, std::uint16_t code, std::int32_t value);
    void sendKey(std::uint16_t key, std::int32_t value);
    void startRepeat(std::uint16_t key);
    void stopRepeat();
    void repeatAt(std::int64_t board_ns);

    Board& board_;
    const InputDescription description_;
    std::shared_ptr<InputRecord> record_;
    const unsigned number_;
    bool gone_ = false;
    std::set<std::uint16_t> keysDown_, ledsLit_;
    std::uint16_t repeated_ = 0;
    EventLoop::TimerId repeatTimer_ = 0;
    std::vector<InputHandle*> handles_;
    InputHandle* grabbedBy_ = nullptr;
};

}  // namespace board
