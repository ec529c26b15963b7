// A small board for the tests of the client library: one thread that speaks the wire protocol for a
// camera-like, a display-like and an input-like node.
#pragma once

#include "board/protocol/sharedpage.h"
#include "board/protocol/wire.h"
#include "tests/board/preload/fakeorders.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace fake {

// One connection: its node's behaviour and what it holds.
struct Connection {
    int socket = -1;
    board::wire::Kind kind = board::wire::Kind::none;
    std::uint32_t slot = 0;
    int clientEnd = -1;  // our copy of what the client has
    int peer = -1;
    int events = -1;
    Unmaps lastUnmap{};
};

bool knows(std::uint32_t code);  // an ioctl of the fake's devices

class Board {
  public:
    // `speed` as in SharedPage.
    explicit Board(std::uint32_t speed = 1);
    ~Board();

    const std::string& folder() const { return folder_; }
    std::string root() const;  // of the stand-ins
    board::wire::SharedPage& page() { return *page_; }
    std::uint32_t requests() const { return requests_; }
    std::uint32_t connections() const { return open_; }

  private:
    using Clock = std::chrono::steady_clock;
    struct Answer {
        board::wire::Response header{};
        std::vector<std::byte> payload;
        std::vector<int> descriptors;
        bool handedOver = false;  // the first descriptor is closed here once it is sent
    };

    void makePage(std::uint32_t speed);
    void addNode(const char* path, unsigned major, unsigned minor);
    void listen();
    void serve();
    int waitTime_ms();
    void runDue();
    void accept();
    bool serveOne(Connection& connection);
    Answer answer(Connection& connection, const board::wire::Request& request,
                  std::vector<std::byte> payload);
    void open(Connection& connection, const std::string& path, Answer& answer);
    void ioctl(Connection& connection, const board::wire::Request& request,
               std::vector<std::byte> payload, Answer& answer);
    bool order(Connection& connection, const board::wire::Request& request,
               std::vector<std::byte>& argument, int& result);
    int v4l2(Connection& connection, std::uint32_t code);
    void later(Connection& connection, std::uint64_t delay_ms,
               std::function<void(Connection&)> work);
    void parkOn(const Park& park);
    void drop(Connection& connection);

    std::string folder_;
    board::wire::SharedPage* page_ = nullptr;
    int listener_ = -1;
    int wakeUp_ = -1;
    std::atomic<bool> stopping_{false};
    std::atomic<std::uint32_t> requests_{0};
    std::atomic<std::uint32_t> open_{0};
    std::uint32_t nextSlot_ = 0;
    std::map<int, Connection> clients_;
    std::multimap<Clock::time_point, std::function<void()>> due_;
    std::thread thread_;
};

}  // namespace fake
