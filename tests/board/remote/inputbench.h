// Input devices on a small board of their own.
#pragma once

#include "board/daemon/remote/inputs.h"
#include "tests/board/camera/camerabench.h"

#include <linux/input.h>

#include <memory>
#include <string>
#include <vector>

namespace board::test {

// An open descriptor with the events that reached it.
class Reader {
  public:
    Reader(FakeBoard& board, std::unique_ptr<Handle> handle);

    Client& calls() { return client_; }
    int descriptor() const { return descriptor_; }
    // Waits for `count` events; fewer after 10 s.
    std::vector<input_event> read(std::size_t count);
    std::vector<input_event> readAll();  // what is there now
    void write(const std::vector<input_event>& events);

  private:
    int descriptor_;
    Client client_;
};

class InputBench : public testing::Test {
  protected:
    explicit InputBench(std::uint32_t speed = 1);
    ~InputBench() override;

    void add(const InputDescription& description);
    std::string plug(const std::string& name);
    void unplug(const std::string& name);
    Reader open(const std::string& path);
    void press(const std::string& key, const std::string& name = "");
    void release(const std::string& key, const std::string& name = "");
    // Down and up at once: no repetition between, however busy the machine is.
    void type(const std::string& key, const std::string& name = "");
    // The message of what `work` throws; empty when it throws nothing.
    std::string errorOf(const std::function<void(Inputs&)>& work);
    InputState state(const std::string& name);

    FakeBoard board;
    std::unique_ptr<Inputs> inputs;  // calls on the loop's thread only
    std::uint32_t nextSlot = 1;
};

InputDescription smallRemote(const std::string& name = "remote");
input_event event(unsigned type, unsigned code, int value);
// "1/17=1" and so on: type, code, value of each, without the times.
std::string textOf(const std::vector<input_event>& events);

}  // namespace board::test
