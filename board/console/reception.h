// Takes connections in and hands each over once it has sent the head of a request.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <set>
#include <string>
#include <thread>

namespace board::console {

struct ReceptionLimits {
    unsigned waiting = 256;        // connections without a whole head; the oldest gives way
    unsigned served = 64;          // at the same time, a thread each
    std::size_t head = 16u << 10;  // bytes
    std::chrono::milliseconds patience{10000};  // for the head to arrive, and a free thread
};

// A connection that says nothing costs a descriptor for `patience` and no thread.
class Reception {
  public:
    // Runs on a thread of its own for each connection; the socket is non-blocking and closed when
    // it returns. `received` has the head, and what came with it.
    using Serve = std::function<void(int socket, std::string received)>;

    // Owns `listening`, a listening socket.
    Reception(int listening, const ReceptionLimits& limits, Serve serve);
    // Shuts all connections and waits for those that are served.
    ~Reception();
    Reception(const Reception&) = delete;
    Reception& operator=(const Reception&) = delete;

  private:
    struct Guest {
        int socket;
        std::string received;
        std::chrono::steady_clock::time_point deadline;
        bool ready = false;  // the head is there
    };

    void run();
    void accept();
    // False when the guest has left, or said too much; the socket is closed then.
    bool hear(Guest& guest);
    void dismissLate();
    bool handOver(Guest& guest);
    void serveAndClose(int socket, std::string received);
    int pollPatience_ms() const;

    int listening_;
    int stopEvent_;
    ReceptionLimits limits_;
    Serve serve_;
    std::list<Guest> guests_;  // of the thread below, oldest first
    std::mutex lock_;
    std::condition_variable left_;
    std::set<int> served_;
    bool stopping_ = false;
    std::thread thread_;
};

// A socket that listens on 127.0.0.1. Port 0: any free one. -1 with errno when it cannot.
int listenOnLoopback(unsigned short port);
unsigned short portOf(int socket);

}  // namespace board::console
