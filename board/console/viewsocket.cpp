#include "board/console/viewsocket.h"

#include "board/daemon/unixaddress.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>

namespace board::console {

namespace {

constexpr std::size_t longestPacket = sizeof(wire::ViewSound) + wire::maxViewSoundBytes;
constexpr unsigned mostDescriptors = 4;

}  // namespace

void Descriptors::clear() {
    for (const int descriptor : list_)
        ::close(descriptor);
    list_.clear();
}

ViewSocket::ViewSocket(const std::string& folder, wire::ViewKind kind) {
    if (open(folder, kind) || socket_ < 0)
        return;
    ::close(socket_);
    socket_ = -1;
}

ViewSocket::~ViewSocket() {
    if (socket_ >= 0)
        ::close(socket_);
}

bool ViewSocket::open(const std::string& folder, wire::ViewKind kind) {
    try {
        const UnixAddress address(folder + "/" + wire::viewSocketName);
        socket_ = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (socket_ < 0 || ::connect(socket_, address.get(), address.size()) != 0)
            return false;
    } catch (const std::exception&) {
        return false;  // the folder has gone
    }
    const wire::ViewRequest request{wire::viewVersion, kind};
    return ::send(socket_, &request, sizeof request, MSG_NOSIGNAL) == ssize_t(sizeof request);
}

void ViewSocket::grant() {
    const char credit = 1;
    // A board that has gone shows when the answer is read.
    if (::send(socket_, &credit, 1, MSG_NOSIGNAL) < 0 && errno != EAGAIN)
        ::shutdown(socket_, SHUT_RDWR);
}

ViewSocket::Event ViewSocket::receive(ViewPacket& packet, std::chrono::milliseconds patience) {
    if (socket_ < 0)
        return Event::gone;
    pollfd wanted{socket_, POLLIN, 0};
    if (::poll(&wanted, 1, int(patience.count())) <= 0)
        return Event::nothing;
    packet.descriptors.clear();
    packet.bytes.resize(longestPacket);
    iovec bytes{packet.bytes.data(), packet.bytes.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(mostDescriptors * sizeof(int))];
    msghdr message{};
    message.msg_iov = &bytes;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t got = ::recvmsg(socket_, &message, MSG_CMSG_CLOEXEC);
    if (got < 0 && (errno == EAGAIN || errno == EINTR))
        return Event::nothing;
    if (got <= 0)
        return Event::gone;
    packet.bytes.resize(std::size_t(got));
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
         part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS)
            continue;
        const std::size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i) {
            int descriptor = -1;
            std::memcpy(&descriptor, CMSG_DATA(part) + i * sizeof descriptor, sizeof descriptor);
            packet.descriptors.add(descriptor);
        }
    }
    return Event::packet;
}

}  // namespace board::console
