#include "board/preload/connection.h"

#include "board/preload/nestedcall.h"
#include "board/preload/pcmioctl.h"
#include "board/preload/run.h"
#include "board/preload/text.h"

#include <fcntl.h>
#include <linux/input.h>
#include <sound/asound.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace board::preload {

namespace {

constexpr unsigned maxParts = 2 + wire::maxBlocks;
constexpr unsigned maxReceived = 2;  // the descriptor and its companion

wire::Request requestOf(wire::Op op) {
    wire::Request request{};
    request.op = op;
    request.pid = std::uint32_t(raw(SYS_getpid));
    return request;
}

// -errno of the socket as the program shall see it: a daemon that is gone is an unplugged device.
long daemonError(long result) {
    return result == -EFAULT || result == -EMSGSIZE ? result : -ENODEV;
}

long send(int connection, iovec* parts, unsigned count) {
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    const long sent = raw(SYS_sendmsg, connection, &message, MSG_NOSIGNAL);
    return sent < 0 ? daemonError(sent) : 0;
}

// Receives into `parts`; descriptors go to `received` (-1 where none came).
long receive(int connection, iovec* parts, unsigned count, int flags, int* received) {
    alignas(cmsghdr) char control[CMSG_SPACE(maxReceived * sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    if (received != nullptr) {
        message.msg_control = control;
        message.msg_controllen = sizeof control;
    }
    const long bytes = raw(SYS_recvmsg, connection, &message, flags | MSG_CMSG_CLOEXEC);
    if (bytes < 0)
        return daemonError(bytes);
    if (bytes < long(sizeof(wire::Response)))
        return -ENODEV;
    if (received == nullptr)
        return 0;
    const cmsghdr* head = CMSG_FIRSTHDR(&message);
    if (head == nullptr || head->cmsg_level != SOL_SOCKET || head->cmsg_type != SCM_RIGHTS)
        return 0;
    const unsigned came = unsigned((head->cmsg_len - CMSG_LEN(0)) / sizeof(int));
    for (unsigned i = 0; i < came && i < maxReceived; ++i)
        received[i] = reinterpret_cast<const int*>(CMSG_DATA(head))[i];
    return 0;
}

// A round trip whose answer is the fixed header and, where asked for, descriptors.
long exchangeHeader(int connection, iovec* parts, unsigned count, wire::Response& response,
                    int* received) {
    if (const long sent = send(connection, parts, count); sent < 0)
        return sent;
    iovec header = {&response, sizeof response};
    const long got = receive(connection, &header, 1, 0, received);
    return got < 0 ? got : response.result;
}

// sun_path is short and run folders are not: the socket is reached through the folder then.
long connectTo(long socket) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    Text direct(address.sun_path, sizeof address.sun_path);
    direct.add(runFolder()).add("/").add(wire::socketName);
    if (direct.whole())
        return raw(SYS_connect, socket, &address, sizeof address);
    const long folder = raw(SYS_openat, AT_FDCWD, runFolder(), O_PATH | O_CLOEXEC, 0);
    if (folder < 0)
        return folder;
    char number[12] = {};
    unsigned place = sizeof number - 1;
    for (long rest = folder; rest > 0 || place == sizeof number - 1; rest /= 10)
        number[--place] = char('0' + rest % 10);
    Text around(address.sun_path, sizeof address.sun_path);
    around.add("/proc/self/fd/").add(number + place).add("/").add(wire::socketName);
    const long result = raw(SYS_connect, socket, &address, sizeof address);
    raw(SYS_close, folder);
    return result;
}

// The hidden connection's number, or -errno.
long newConnection() {
    const long socket = raw(SYS_socket, AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (socket < 0)
        return socket;
    if (connectTo(socket) < 0) {
        raw(SYS_close, socket);
        return -ENODEV;
    }
    return hide(int(socket));
}

// The received descriptor as if open() had made it.
void applyFlags(int fd, int flags) {
    if ((flags & O_CLOEXEC) == 0)
        raw(SYS_fcntl, fd, F_SETFD, 0);
    raw(SYS_fcntl, fd, F_SETFL, flags & (O_NONBLOCK | O_ASYNC));
}

long openOn(HandleRef& handle, const wire::NodeEntry& node, int flags) {
    wire::Request request = requestOf(wire::Op::open);
    request.fileFlags = std::uint32_t(flags);
    request.argBytes = std::uint32_t(length(node.path));
    iovec parts[] = {{&request, sizeof request}, {const_cast<char*>(node.path), request.argBytes}};
    wire::Response response{};
    int received[maxReceived] = {-1, -1};
    const long result = exchangeHeader(handle->connection, parts, 2, response, received);
    if (result >= 0 && received[0] >= 0) {
        if (received[1] >= 0)
            handle->events = hide(received[1]);
        handle->kind = response.kind;
        handle->slot = response.slot;
        applyFlags(received[0], flags);
        if (attach(received[0], handle.again()))
            return received[0];
    }
    if (received[0] >= 0)
        raw(SYS_close, received[0]);
    return result < 0 ? result : -EMFILE;
}

// Some ioctls that are numbered as if they took a pointer take a value.
bool takesValue(wire::Kind kind, std::uint32_t request) {
    if (kind == wire::Kind::evdev)
        return request == std::uint32_t(EVIOCGRAB) || request == std::uint32_t(EVIOCREVOKE);
    if (kind == wire::Kind::pcm)
        return request == std::uint32_t(SNDRV_PCM_IOCTL_PAUSE) ||
               request == std::uint32_t(SNDRV_PCM_IOCTL_LINK);
    return false;
}

// The answer goes straight into the caller's memory; a bad pointer makes EFAULT of it.
long receiveIoctl(int connection, iovec argument, const NestedCall& nested) {
    wire::Response response{};
    iovec parts[maxParts] = {{&response, sizeof response}};
    if (const long got = receive(connection, parts, 1, MSG_PEEK, nullptr); got < 0)
        return got;
    unsigned count = 1;
    if (response.argBytes > 0 && response.argBytes <= argument.iov_len)
        parts[count++] = {argument.iov_base, response.argBytes};
    if (response.argBytes <= argument.iov_len)
        count += nested.answerParts(response, parts + count);
    const long got = receive(connection, parts, count, 0, nullptr);
    return got < 0 ? got : response.result;
}

long exchangeIoctl(Handle& handle, int fd, wire::Request& request, iovec argument,
                   NestedCall& nested) {
    request.fileFlags = std::uint32_t(raw(SYS_fcntl, fd, F_GETFL));
    request.argBytes = std::uint32_t(argument.iov_len);
    iovec parts[maxParts] = {{&request, sizeof request}, argument};
    const unsigned count = 2 + nested.requestParts(request, parts + 2);
    const Locked locked(handle.lock);
    const int connection = handle.connection;
    if (connection < 0)
        return -ENODEV;
    const long sent = send(connection, parts, count);
    return sent < 0 ? sent : receiveIoctl(connection, argument, nested);
}

// An ioctl that the device does not have is refused whatever its argument is.
long badPointer(Handle& handle, std::uint32_t code) {
    wire::Request request = requestOf(wire::Op::known);
    request.code = code;
    iovec part = {&request, sizeof request};
    wire::Response response{};
    const Locked locked(handle.lock);
    const long result = exchangeHeader(handle.connection, &part, 1, response, nullptr);
    return result < 0 ? result : -EFAULT;
}

}  // namespace

bool readable(const void* address, std::uint64_t bytes) {
    constexpr std::uintptr_t page = 4096;
    auto at = reinterpret_cast<std::uintptr_t>(address);
    const std::uintptr_t last = at + bytes - 1;
    if (bytes == 0 || last < at)
        return bytes == 0;
    // With an impossible `how` the kernel reads the 8 bytes and then refuses: EFAULT tells.
    for (at &= ~std::uintptr_t(7); at <= last; at = (at & ~(page - 1)) + page)
        if (raw(SYS_rt_sigprocmask, ~0, at, nullptr, 8) == -EFAULT)
            return false;
    return true;
}

long openNode(const wire::NodeEntry& node, int flags) {
    if ((flags & O_DIRECTORY) != 0)
        return -ENOTDIR;
    const SignalsBlocked blocked;
    HandleRef handle = newHandle();
    if (!handle)
        return -ENFILE;
    handle->mode = node.mode;
    handle->rdev = node.rdev;
    handle->inode = node.inode;
    const long connection = newConnection();
    if (connection < 0)
        return connection;
    handle->connection = int(connection);
    return openOn(handle, node, flags);
}

long callIoctl(Handle& handle, int fd, std::uint32_t code, void* argument) {
    wire::Request request = requestOf(wire::Op::ioctl);
    request.code = code;
    int value = int(reinterpret_cast<std::intptr_t>(argument));
    iovec place = {argument, _IOC_SIZE(code)};
    if (takesValue(handle.kind, code))
        place = {&value, sizeof value};
    else if (place.iov_len == 0)
        request.offset = reinterpret_cast<std::uintptr_t>(argument);
    NestedCall nested(handle.kind == wire::Kind::pcm ? frameBytes(handle) : 0);
    long result = nested.gather(code, place.iov_base, place.iov_len);
    if (result == 0)
        result = exchangeIoctl(handle, fd, request, place, nested);
    return result == -EFAULT ? badPointer(handle, code) : result;
}

long callMap(Handle& handle, std::uint64_t offset, std::uint64_t bytes, std::uint32_t protection) {
    wire::Request request = requestOf(wire::Op::map);
    request.offset = offset;
    request.length = bytes;
    request.protection = protection;
    iovec part = {&request, sizeof request};
    wire::Response response{};
    int received[maxReceived] = {-1, -1};
    const Locked locked(handle.lock);
    const long result = exchangeHeader(handle.connection, &part, 1, response, received);
    if (result < 0 && received[0] >= 0)
        raw(SYS_close, received[0]);
    if (result < 0)
        return result;
    return received[0] >= 0 ? received[0] : -ENODEV;
}

void callUnmap(Handle& handle, std::uint64_t offset, std::uint64_t bytes) {
    wire::Request request = requestOf(wire::Op::unmap);
    request.offset = offset;
    request.length = bytes;
    iovec part = {&request, sizeof request};
    wire::Response response{};
    const Locked locked(handle.lock);
    exchangeHeader(handle.connection, &part, 1, response, nullptr);
}

}  // namespace board::preload
