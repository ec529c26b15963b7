#include "tests/support/httpclient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>

namespace support {

namespace {

// "Name: value" lines.
void readHeaders(const std::string& text, std::map<std::string, std::string>& headers) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t colon = line.find(": ");
        if (colon == std::string::npos)
            continue;
        std::string name = line.substr(0, colon);
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return char(std::tolower(c)); });
        headers[name] = line.substr(colon + 2, line.find('\r') - colon - 2);
    }
}

bool waitFor(int socket, short events, Clock::time_point deadline) {
    const auto left = std::chrono::ceil<Milliseconds>(deadline - Clock::now());
    pollfd wanted{socket, events, 0};
    return left.count() > 0 && ::poll(&wanted, 1, int(left.count())) > 0;
}

}  // namespace

HttpConnection::HttpConnection(unsigned short port)
    : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const std::string reason = std::strerror(errno);
        ::close(socket_);
        throw std::runtime_error("port " + std::to_string(port) + ": " + reason);
    }
}

HttpConnection::~HttpConnection() {
    ::close(socket_);
}

bool HttpConnection::send(const std::string& bytes, Milliseconds patience) {
    const Clock::time_point deadline = Clock::now() + scaled(patience);
    for (std::size_t sent = 0; sent < bytes.size();) {
        if (!waitFor(socket_, POLLOUT, deadline))
            return false;
        const ssize_t went =
            ::send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (went < 0 && errno != EAGAIN && errno != EINTR)
            return false;
        sent += went > 0 ? std::size_t(went) : 0;
    }
    return true;
}

bool HttpConnection::more(Clock::time_point deadline) {
    char bytes[65536];
    if (!waitFor(socket_, POLLIN, deadline))
        return false;
    const ssize_t got = ::recv(socket_, bytes, sizeof bytes, 0);
    if (got <= 0)
        return false;
    received_.append(bytes, std::size_t(got));
    return true;
}

std::string HttpConnection::readUntil(const std::string& mark, Milliseconds patience) {
    const Clock::time_point deadline = Clock::now() + scaled(patience);
    for (std::size_t from = 0;;) {
        const std::size_t place = received_.find(mark, from);
        if (place != std::string::npos)
            return read(place + mark.size(), Milliseconds(0));
        from = received_.size() < mark.size() ? 0 : received_.size() - mark.size();
        if (!more(deadline))
            return std::move(received_);
    }
}

std::string HttpConnection::read(std::size_t bytes, Milliseconds patience) {
    const Clock::time_point deadline = Clock::now() + scaled(patience);
    while (received_.size() < bytes && more(deadline)) {
    }
    std::string text = received_.substr(0, bytes);
    received_.erase(0, text.size());
    return text;
}

HttpAnswer HttpConnection::readHead(Milliseconds patience) {
    HttpAnswer answer;
    const std::string head = readUntil("\r\n\r\n", patience);
    if (head.compare(0, 9, "HTTP/1.1 ") == 0)
        answer.status = std::atoi(head.c_str() + 9);
    readHeaders(head, answer.headers);
    return answer;
}

HttpAnswer HttpConnection::readAnswer(Milliseconds patience) {
    HttpAnswer answer = readHead(patience);
    const Clock::time_point deadline = Clock::now() + scaled(patience);
    while (more(deadline)) {
    }
    answer.body = std::move(received_);
    return answer;
}

bool HttpConnection::waitForClose(Milliseconds patience) {
    const Clock::time_point deadline = Clock::now() + scaled(patience);
    while (more(deadline))
        received_.clear();
    return Clock::now() < deadline;
}

std::string getRequest(unsigned short port, const std::string& path, const std::string& headers) {
    return "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n" +
           headers + "\r\n";
}

HttpAnswer httpGet(unsigned short port, const std::string& path, const std::string& headers) {
    HttpConnection connection(port);
    connection.send(getRequest(port, path, headers));
    return connection.readAnswer();
}

HttpAnswer httpPost(unsigned short port, const std::string& path, const std::string& json) {
    HttpConnection connection(port);
    connection.send("POST " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                    "\r\nOrigin: http://127.0.0.1:" + std::to_string(port) +
                    "\r\nContent-Type: application/json\r\nContent-Length: " +
                    std::to_string(json.size()) + "\r\n\r\n" + json);
    return connection.readAnswer();
}

HttpAnswer readPart(HttpConnection& stream, Milliseconds patience) {
    HttpAnswer part;
    // The boundary line is in front of the first part's headers, or behind the part before.
    std::string head = stream.readUntil("\r\n\r\n", patience);
    readHeaders(head, part.headers);
    const auto length = part.headers.find("content-length");
    if (length == part.headers.end())
        return part;
    part.body = stream.read(std::size_t(std::atol(length->second.c_str())), patience);
    stream.read(2, patience);
    return part;
}

}  // namespace support
