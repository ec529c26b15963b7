// The order socket: several clients at once, one line of JSON in, one out.
#pragma once

#include "board/daemon/eventloop.h"
#include "board/daemon/listener.h"
#include "board/daemon/orders.h"

#include <memory>
#include <string>
#include <unordered_map>

namespace board {

class OrderServer {
  public:
    // `orders` must outlive the server. Throws std::system_error.
    OrderServer(EventLoop& loop, const std::string& path, const Orders& orders);
    ~OrderServer();  // answers that are still due are dropped

  private:
    struct Client;

    void accepted(int fd);
    void ready(Client& client, std::uint32_t events);
    bool receive(Client& client);
    void runLines(Client& client);
    void answer(const std::weak_ptr<Client>& receiver, const OrderResult& result);
    bool flush(Client& client);
    void settle(Client& client);
    void drop(Client& client);

    EventLoop& loop_;
    const Orders& orders_;
    std::unordered_map<int, std::shared_ptr<Client>> clients_;
    Listener listener_;
};

}  // namespace board
