// A client of the board's sockets that can also misbehave.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "board/protocol/wire.h"

namespace boardtest {

// One connection to the device socket. Receiving waits 10 s at most.
class BoardClient {
  public:
    explicit BoardClient(const std::string& folder);  // throws when nobody listens
    ~BoardClient();
    BoardClient(const BoardClient&) = delete;
    BoardClient& operator=(const BoardClient&) = delete;

    struct Answer {
        bool came = false;  // false: the board closed the connection
        board::wire::Response header{};
        std::vector<std::byte> payload;
        unsigned descriptors = 0;  // received and closed
    };

    bool sendRaw(const void* bytes, std::size_t count);  // without waiting; false when refused
    bool send(const board::wire::Request& request, const std::vector<std::byte>& payload);
    Answer receive();
    bool closedByBoard();  // waits for it

    Answer call(const board::wire::Request& request, const std::vector<std::byte>& payload = {}) {
        send(request, payload);
        return receive();
    }
    Answer open(const std::string& path);
    Answer ioctl(std::uint32_t code, const std::vector<std::byte>& argument);
    int descriptor() const { return fd_; }

  private:
    int fd_;
};

// A connection to the order socket.
class OrderClient {
  public:
    explicit OrderClient(const std::string& folder);
    ~OrderClient();
    OrderClient(const OrderClient&) = delete;
    OrderClient& operator=(const OrderClient&) = delete;

    void send(const std::string& text);
    // The next line without its end; "closed" when the board closed, "late" after 10 s.
    std::string line();
    std::string order(const std::string& json) {
        send(json + "\n");
        return line();
    }
    void endSending();
    int descriptor() const { return fd_; }

  private:
    int fd_;
    std::string received_;
};

template <typename T>
std::vector<std::byte> bytesOf(const T& value) {
    const auto* first = reinterpret_cast<const std::byte*>(&value);
    return {first, first + sizeof value};
}

}  // namespace boardtest
