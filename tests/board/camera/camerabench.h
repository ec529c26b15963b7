// A camera on a small board of its own: the loop runs in a thread as in the daemon, every call is
// handed over to it.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/camera.h"
#include "board/protocol/sharedpage.h"

#include <gtest/gtest.h>
#include <linux/videodev2.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace board::test {

class FakeBoard : public Board {
  public:
    struct Node {
        unsigned major, minor;
        Device* device;
    };

    explicit FakeBoard(std::uint32_t speed);
    ~FakeBoard() override;
    EventLoop& loop() override { return loop_; }
    const BoardClock& clock() const override { return clock_; }
    void addNode(const std::string& path, unsigned major, unsigned minor, Device& device) override {
        nodes[path] = {major, minor, &device};
    }
    void removeNode(const std::string& path) override { nodes.erase(path); }
    void setHandleState(std::uint32_t slot, std::uint32_t bits) override { states[slot] = bits; }
    void log(const std::string& line) override { lines.push_back(line); }

    // Runs `work` on the loop's thread and waits for its end.
    void onLoop(const std::function<void()>& work);

    // Loop thread only.
    std::map<std::string, Node> nodes;
    std::map<std::uint32_t, std::uint32_t> states;
    std::vector<std::string> lines;

  private:
    EventLoop loop_;
    BoardClock clock_;
    std::thread thread_;
};

// Two raw formats and a compressed one, and controls of every kind.
CameraDescription smallCamera();

// An open descriptor: ioctls by argument, and what poll would say of it.
class Client {
  public:
    Client(FakeBoard& board, std::unique_ptr<Handle> handle)
        : board_(board), handle_(std::move(handle)) {}
    Client(Client&&) = default;
    ~Client() { close(); }
    std::uint32_t state();  // bits in the page
    void close();

    template <typename T>
    int operator()(std::uint64_t request, T& argument) {
        IoctlCall call;
        call.request = std::uint32_t(request);
        call.fileFlags = fileFlags;
        call.argument.resize(sizeof(T));
        call.store(argument);
        const int result = run(call);
        argument = call.load<T>();
        return result;
    }
    int run(IoctlCall& call);
    int extended(std::uint64_t request, v4l2_ext_controls& header,
                 std::vector<v4l2_ext_control>& items);
    bool knows(std::uint64_t request);
    int stream(bool on);
    Mapping map(std::uint64_t offset, std::uint64_t length, std::uint32_t protection);
    void unmapped(std::uint64_t offset, std::uint64_t length);
    // Waits until the descriptor is readable; false at the deadline.
    bool wait(int deadline_ms = 10000);
    short polled();        // of the descriptor itself, without waiting
    short polledEvents();  // of its companion

    std::uint32_t fileFlags = 0;

  private:
    FakeBoard& board_;
    std::unique_ptr<Handle> handle_;
};

class CameraBench : public testing::Test {
  protected:
    explicit CameraBench(std::uint32_t speed = 1);
    ~CameraBench() override;

    std::string plug(unsigned firstNumber = 0);
    void unplug();
    CameraFigures figures();
    Client open();  // of the node that is in place
    // Waits until `done`, run on the loop's thread, says so; false at the deadline.
    bool until(const std::function<bool()>& done, int deadline_ms = 10000);
    // S_FMT to YUYV 64x48 at the given interval and `count` buffers, all queued.
    void prepare(Client& client, std::uint32_t count, v4l2_fract interval = {1, 100});
    // The next filled buffer; fails the test at the deadline.
    v4l2_buffer take(Client& client);
    // What lies in a dequeued buffer.
    static std::vector<std::uint8_t> content(Client& client, const v4l2_buffer& taken);
    static v4l2_buffer buffer(std::uint32_t index);

    FakeBoard board;
    std::unique_ptr<Camera> camera;  // calls on the loop's thread only
    std::uint32_t nextSlot = 1;
};

}  // namespace board::test
