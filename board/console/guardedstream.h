// One connection as the HTTP library reads and writes it, with limits of its own.
#pragma once

#include <httplib.h>

#include <chrono>
#include <string>

namespace board::console {

struct StreamLimits {
    std::size_t requestBytes = 24u << 10;      // head and body together
    std::chrono::milliseconds request{10000};  // for the whole request to arrive
    std::chrono::milliseconds write{10000};    // for one piece of an answer to be taken
};

// Used by one thread. Does not own the socket, which must be non-blocking.
class GuardedStream : public httplib::Stream {
  public:
    // `received`: what was read from the socket already.
    GuardedStream(int socket, std::string received, const StreamLimits& limits);

    bool is_readable() const override;
    // False when the other side has gone.
    bool is_writable() const override;
    // 0 at the end, -1 after a limit.
    ssize_t read(char* bytes, std::size_t size) override;
    // All of it, or -1.
    ssize_t write(const char* bytes, std::size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override { return socket_; }

  private:
    using Clock = std::chrono::steady_clock;
    bool waitFor(short events, Clock::time_point deadline) const;

    int socket_;
    std::string received_;
    std::size_t taken_ = 0;
    std::size_t bytes_ = 0;
    StreamLimits limits_;
    Clock::time_point deadline_;
};

}  // namespace board::console
