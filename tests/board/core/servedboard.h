// A board with a made-up device, served by a loop on a thread of its own.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "board/daemon/coreboard.h"
#include "board/daemon/coreorders.h"
#include "board/daemon/orderserver.h"
#include "board/daemon/server.h"

namespace boardtest {

constexpr char fakeNode[] = "/dev/fake";
constexpr char secondNode[] = "/dev/other";

// Knows QUERYCAP (answers with a card's name), G_EXT_CTRLS (doubles the values), GETPROPBLOB (8
// bytes, whatever there is room for), S_INPUT (throws), G_INPUT (fails with EBUSY and a reply).
class FakeDevice : public board::Device {
  public:
    std::unique_ptr<board::Handle> open(std::uint32_t fileFlags, std::uint32_t pid,
                                        int* error) override;
    std::atomic<int> handles{0};
    std::atomic<int> calls{0};
    std::atomic<int> unmapped{0};
};

class ServedBoard : public testing::Test {
  protected:
    ServedBoard();
    ~ServedBoard() override;

    // Runs on the loop's thread and waits for it.
    void onLoop(const std::function<void()>& work);
    // Whether the condition (asked on the loop's thread) comes true within 10 s.
    bool becomesTrue(const std::function<bool()>& condition);

    std::string folder_;
    board::EventLoop loop_;
    FakeDevice device_;
    std::unique_ptr<board::CoreBoard> board_;
    board::Faults faults_;
    board::Orders orders_;
    board::OrderDone pending_;  // the order "picture" is answered when a test calls this
    std::unique_ptr<board::Server> server_;
    std::unique_ptr<board::OrderServer> orderServer_;
    std::thread thread_;
};

}  // namespace boardtest
