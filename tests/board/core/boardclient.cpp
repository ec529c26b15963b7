#include "tests/board/core/boardclient.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "board/daemon/unixaddress.h"

namespace boardtest {

namespace wire = board::wire;

namespace {

constexpr int patience_ms = 10000;

int connectTo(const std::string& path, int type) {
    const board::UnixAddress address(path);
    const int fd = ::socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    if (fd < 0 || ::connect(fd, address.get(), address.size()) != 0)
        throw std::system_error(errno, std::generic_category(), path);
    return fd;
}

bool waitReadable(int fd) {
    pollfd watched{fd, POLLIN, 0};
    return ::poll(&watched, 1, patience_ms) == 1;
}

}  // namespace

BoardClient::BoardClient(const std::string& folder)
    : fd_(connectTo(folder + "/" + wire::socketName, SOCK_SEQPACKET)) {}

BoardClient::~BoardClient() {
    ::close(fd_);
}

bool BoardClient::sendRaw(const void* bytes, std::size_t count) {
    return ::send(fd_, bytes, count, MSG_NOSIGNAL | MSG_DONTWAIT) == ssize_t(count);
}

bool BoardClient::send(const wire::Request& request, const std::vector<std::byte>& payload) {
    std::vector<std::byte> message = bytesOf(request);
    message.insert(message.end(), payload.begin(), payload.end());
    return sendRaw(message.data(), message.size());
}

BoardClient::Answer BoardClient::receive() {
    Answer answer;
    answer.payload.resize(wire::maxMessageBytes);
    iovec parts[2] = {{&answer.header, sizeof answer.header},
                      {answer.payload.data(), answer.payload.size()}};
    alignas(cmsghdr) char control[CMSG_SPACE(4 * sizeof(int))];
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t bytes = waitReadable(fd_) ? ::recvmsg(fd_, &message, MSG_CMSG_CLOEXEC) : 0;
    answer.came = bytes >= ssize_t(sizeof answer.header);
    answer.payload.resize(answer.came ? std::size_t(bytes) - sizeof answer.header : 0);
    const cmsghdr* head = answer.came ? CMSG_FIRSTHDR(&message) : nullptr;
    for (; head != nullptr; head = CMSG_NXTHDR(&message, const_cast<cmsghdr*>(head))) {
        const std::size_t count = (head->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i, ++answer.descriptors) {
            int fd = -1;
            std::memcpy(&fd, CMSG_DATA(head) + i * sizeof(int), sizeof fd);
            ::close(fd);
        }
    }
    return answer;
}

bool BoardClient::closedByBoard() {
    char rest[4096];
    while (waitReadable(fd_)) {
        const ssize_t bytes = ::recv(fd_, rest, sizeof rest, 0);
        if (bytes == 0 || (bytes < 0 && errno == ECONNRESET))
            return true;
    }
    return false;
}

BoardClient::Answer BoardClient::open(const std::string& path) {
    wire::Request request{};
    request.op = wire::Op::open;
    request.pid = std::uint32_t(::getpid());
    request.argBytes = std::uint32_t(path.size());
    const auto* first = reinterpret_cast<const std::byte*>(path.data());
    return call(request, {first, first + path.size()});
}

BoardClient::Answer BoardClient::ioctl(std::uint32_t code, const std::vector<std::byte>& argument) {
    wire::Request request{};
    request.op = wire::Op::ioctl;
    request.code = code;
    request.argBytes = std::uint32_t(argument.size());
    return call(request, argument);
}

OrderClient::OrderClient(const std::string& folder)
    : fd_(connectTo(folder + "/" + wire::orderSocketName, SOCK_STREAM)) {}

OrderClient::~OrderClient() {
    ::close(fd_);
}

void OrderClient::send(const std::string& text) {
    for (std::size_t sent = 0; sent < text.size();) {
        const ssize_t bytes = ::send(fd_, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (bytes <= 0)
            return;
        sent += std::size_t(bytes);
    }
}

std::string OrderClient::line() {
    while (received_.find('\n') == std::string::npos) {
        char piece[4096];
        if (!waitReadable(fd_))
            return "late";
        const ssize_t bytes = ::recv(fd_, piece, sizeof piece, 0);
        if (bytes <= 0)
            return "closed";
        received_.append(piece, std::size_t(bytes));
    }
    const std::size_t end = received_.find('\n');
    const std::string line = received_.substr(0, end);
    received_.erase(0, end + 1);
    return line;
}

void OrderClient::endSending() {
    ::shutdown(fd_, SHUT_WR);
}

}  // namespace boardtest
