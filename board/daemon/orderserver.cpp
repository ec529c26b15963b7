#include "board/daemon/orderserver.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace board {

namespace {

constexpr std::size_t longestLine = 64u << 10;
constexpr std::size_t mostUnsent = 256u << 10;  // a client that reads so little is dropped
constexpr std::size_t mostClients = 64;

}  // namespace

// Orders of one client run one after the other: a later one waits until the earlier is answered.
struct OrderServer::Client {
    explicit Client(int descriptor) : fd(descriptor) {}
    ~Client() { ::close(fd); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    int fd;
    std::string received, unsent;
    bool running = false;  // an order is not answered yet
    bool ended = false;    // nothing more will come
    bool dropped = false;
};

OrderServer::OrderServer(EventLoop& loop, const std::string& path, const Orders& orders)
    : loop_(loop),
      orders_(orders),
      listener_(loop, path, SOCK_STREAM, [this](int fd) { accepted(fd); }) {}

OrderServer::~OrderServer() {
    for (const auto& entry : clients_)
        loop_.unwatch(entry.first);
}

void OrderServer::accepted(int fd) {
    const auto client = std::make_shared<Client>(fd);
    if (clients_.size() >= mostClients)
        return;
    clients_[fd] = client;
    loop_.watch(fd, EPOLLIN, [this, client](std::uint32_t events) { ready(*client, events); });
}

void OrderServer::ready(Client& client, std::uint32_t events) {
    if ((events & EPOLLOUT) != 0 && !flush(client))
        return drop(client);
    if ((events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0 && !client.ended && !receive(client))
        return drop(client);
    runLines(client);
    // Both directions closed: whatever is still due has no reader.
    if ((events & (EPOLLHUP | EPOLLERR)) != 0)
        return drop(client);
    settle(client);
}

bool OrderServer::receive(Client& client) {
    char buffer[16384];
    const ssize_t bytes = ::recv(client.fd, buffer, sizeof buffer, MSG_DONTWAIT);
    if (bytes < 0)
        return errno == EAGAIN || errno == EINTR;
    client.ended = bytes == 0;
    client.received.append(buffer, std::size_t(bytes));
    return true;
}

void OrderServer::runLines(Client& client) {
    while (!client.running && !client.dropped) {
        const std::size_t end = client.received.find('\n');
        if (end == std::string::npos)
            break;
        const std::string line = client.received.substr(0, end);
        client.received.erase(0, end + 1);
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        client.running = true;
        const std::weak_ptr<Client> receiver = clients_.at(client.fd);
        orders_.run(line,
                    [this, receiver](const OrderResult& result) { answer(receiver, result); });
    }
    if (client.received.size() > longestLine && !client.running && !client.dropped) {
        OrderResult tooLong;
        tooLong.error = "order longer than 64 KB";
        client.unsent += tooLong.line();
        client.received.clear();
        client.ended = true;
        flush(client);
    }
}

void OrderServer::answer(const std::weak_ptr<Client>& receiver, const OrderResult& result) {
    const auto client = receiver.lock();
    if (!client || client->dropped)
        return;
    client->running = false;
    // One answer may be long; many that nobody reads are too much.
    if (client->unsent.size() > mostUnsent)
        return drop(*client);
    client->unsent += result.line();
    if (!flush(*client))
        return drop(*client);
    // Answered from inside runLines, that goes on with the next line itself; answered later, the
    // loop's next turn does.
    loop_.post([this, receiver] {
        const auto later = receiver.lock();
        if (!later || later->dropped)
            return;
        runLines(*later);
        if (!later->dropped)
            settle(*later);
    });
}

bool OrderServer::flush(Client& client) {
    while (!client.unsent.empty()) {
        const ssize_t bytes = ::send(client.fd, client.unsent.data(), client.unsent.size(),
                                     MSG_DONTWAIT | MSG_NOSIGNAL);
        if (bytes < 0)
            return errno == EAGAIN || errno == EINTR;
        client.unsent.erase(0, std::size_t(bytes));
    }
    return true;
}

// What to wait for next: room to send, more lines, or nothing because it is over.
void OrderServer::settle(Client& client) {
    if (client.dropped)
        return;
    if (client.ended && !client.running && client.unsent.empty() &&
        client.received.find('\n') == std::string::npos)
        return drop(client);
    std::uint32_t events = 0;
    if (!client.ended && !client.running && client.received.size() <= longestLine)
        events |= EPOLLIN;
    if (!client.unsent.empty())
        events |= EPOLLOUT;
    const auto shared = clients_.at(client.fd);
    loop_.watch(client.fd, events,
                [this, shared](std::uint32_t happened) { ready(*shared, happened); });
}

void OrderServer::drop(Client& client) {
    if (client.dropped)
        return;
    client.dropped = true;
    loop_.unwatch(client.fd);
    clients_.erase(client.fd);
}

}  // namespace board
