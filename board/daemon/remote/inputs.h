// The board's input devices: each by its name, plugged in or not. Loop thread only.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/inputdescription.h"
#include "board/daemon/remote/pluggedinput.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace board {

struct InputState {
    std::string name, device;
    std::string node;  // empty while unplugged
    std::vector<std::string> keysDown;
    std::vector<std::uint16_t> ledsLit;
    std::uint64_t writtenCount = 0;
    std::vector<InputWrite> written;  // the latest ones
};

// Functions throw std::runtime_error with one line: no such device, not plugged in, ...
class Inputs {
  public:
    // Puts in place what is plugged.
    Inputs(Board& board, const std::vector<InputDescription>& described);
    ~Inputs();

    bool has(const std::string& name) const;
    void add(const InputDescription& description);  // not plugged yet
    void change(const std::string& name, const InputDescription& description);
    // The node's path: the lowest number from the description's that no other device has.
    std::string plug(const std::string& name);
    void unplug(const std::string& name);

    // `name` may be empty: the first device. Board time of the event, in ns.
    std::int64_t press(const std::string& name, const std::string& key);
    std::int64_t release(const std::string& name, const std::string& key);
    // Pressed now, released `ms` of board time later; then `done` gets an error line, empty on
    // success. A key that is up by then (released, or its device gone) is an error.
    void hold(const std::string& name, const std::string& key, std::uint32_t ms,
              const std::function<void(const std::string& error)>& done);
    std::vector<InputState> states();

  private:
    struct Entry {
        InputDescription description;
        std::shared_ptr<InputRecord> record = std::make_shared<InputRecord>();
        std::shared_ptr<PluggedInput> plugged;
    };
    Entry& find(const std::string& name);
    PluggedInput& pluggedOf(Entry& entry) const;
    bool numberTaken(unsigned number) const;

    Board& board_;
    std::vector<std::unique_ptr<Entry>> entries_;
};

}  // namespace board
