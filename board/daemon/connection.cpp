#include "board/daemon/connection.h"

#include "board/daemon/nestedblocks.h"

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>

namespace board {

namespace {

// A client that talks without pause must not keep the others waiting.
constexpr int messagesAtOnce = 8;
constexpr std::size_t longestPath = 4096;
constexpr std::size_t mostDescriptors = 2;

// What is wrong with a message of this many bytes; empty when its lengths add up.
std::string lengthError(const wire::Request& request, std::size_t bytes) {
    if (request.argBytes > wire::maxArgBytes)
        return "argument too long";
    if (request.blockCount > wire::maxBlocks)
        return "too many blocks";
    std::uint64_t sum = sizeof request + std::uint64_t(request.argBytes);
    for (std::uint32_t i = 0; i < request.blockCount; ++i)
        sum += request.blocks[i].sent;
    return sum == bytes ? "" : "lengths do not add up";
}

}  // namespace

Connection::Connection(int fd, CoreBoard& board, Faults& faults)
    : fd_(fd), board_(board), faults_(faults) {
    // Room for the largest answer; a client that leaves it full is not reading.
    const int bytes = 2 * int(wire::maxMessageBytes);
    ::setsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
}

Connection::~Connection() {
    handle_.reset();
    if (slot_ < wire::maxHandles)
        board_.page().giveBackSlot(slot_);
    ::close(fd_);
}

bool Connection::violation(const std::string& what) {
    board_.log("client " + std::to_string(pid_) + (path_.empty() ? "" : " on " + path_) +
               " dropped: " + what);
    return false;
}

bool Connection::serve() {
    // One thread serves all connections, one after the other.
    static std::vector<std::byte> buffer(wire::maxMessageBytes);
    for (int i = 0; i < messagesAtOnce; ++i) {
        // MSG_TRUNC: the message's real length, also when it is longer than the buffer.
        const ssize_t bytes = ::recv(fd_, buffer.data(), buffer.size(), MSG_DONTWAIT | MSG_TRUNC);
        if (bytes < 0)
            return errno == EAGAIN || errno == EINTR;
        if (bytes == 0)
            return false;
        if (std::size_t(bytes) > buffer.size())
            return violation("message too long");
        if (!serveMessage(buffer.data(), std::size_t(bytes)))
            return false;
    }
    return true;
}

bool Connection::serveMessage(const std::byte* message, std::size_t bytes) {
    wire::Request request{};
    if (bytes < sizeof request)
        return violation("message too short");
    std::memcpy(&request, message, sizeof request);
    pid_ = request.pid;
    const std::string error = lengthError(request, bytes);
    if (!error.empty())
        return violation(error);
    if (request.op < wire::Op::open || request.op > wire::Op::known)
        return violation("unknown operation");
    if ((request.op == wire::Op::open) != (handle_ == nullptr))
        return violation(handle_ ? "second open" : "call before open");
    if (request.op == wire::Op::ioctl && request.argBytes > _IOC_SIZE(request.code))
        return violation("argument longer than the ioctl's");

    Answer answer;
    try {
        answer = call(request, message + sizeof request);
    } catch (const std::exception& failure) {
        board_.log("call on " + path_ + " failed: " + failure.what());
        answer = {};
        answer.header.result = -EIO;
    }
    return send(answer);
}

Connection::Answer Connection::call(const wire::Request& request, const std::byte* payload) {
    Answer answer;
    switch (request.op) {
        case wire::Op::open:
            return open(request, payload);
        case wire::Op::ioctl:
            return ioctl(request, payload);
        case wire::Op::map:
            return map(request);
        case wire::Op::unmap:
            handle_->unmapped(request.offset, request.length);
            break;
        case wire::Op::known:
            answer.header.result = handle_->knows(request.code) ? 0 : -handle_->unknownIoctlError();
            break;
    }
    return answer;
}

Connection::Answer Connection::open(const wire::Request& request, const std::byte* payload) {
    Answer answer;
    const std::string path(reinterpret_cast<const char*>(payload), request.argBytes);
    Device* device = path.size() < longestPath ? board_.deviceAt(path) : nullptr;
    if (device == nullptr) {
        answer.header.result = -ENOENT;
        return answer;
    }
    if (slot_ == wire::maxHandles) {
        const auto slot = board_.page().takeSlot();
        if (!slot) {
            answer.header.result = -ENFILE;
            return answer;
        }
        slot_ = *slot;
    }
    int error = EIO;
    handle_ = device->open(request.fileFlags, request.pid, &error);
    if (!handle_) {
        answer.header.result = -error;
        return answer;
    }
    handle_->slot = slot_;
    path_ = path;
    answer.header.kind = handle_->kind();
    answer.header.slot = slot_;
    answer.descriptors.push_back(handle_->clientDescriptor());
    const int companion = handle_->eventDescriptor();
    if (companion >= 0) {
        answer.header.eventSlot = 1;
        answer.descriptors.push_back(companion);
    }
    return answer;
}

Connection::Answer Connection::ioctl(const wire::Request& request, const std::byte* payload) {
    Answer answer;
    if (!handle_->knows(request.code)) {
        answer.header.result = -handle_->unknownIoctlError();
        return answer;
    }
    const int fault = faults_.check(request.code);
    if (fault != 0) {
        answer.header.result = -fault;
        return answer;
    }
    IoctlCall call;
    call.request = request.code;
    call.fileFlags = request.fileFlags;
    call.argument.assign(payload, payload + request.argBytes);
    call.argument.resize(_IOC_SIZE(request.code));
    const int unfit = takeBlocks(request, payload + request.argBytes, call);
    if (unfit != 0) {
        answer.header.result = -unfit;
        return answer;
    }
    answer.header.result = handle_->ioctl(call);
    if (answer.header.result < 0 && !handle_->replyOnError(request.code))
        return answer;
    // Only an argument that the ioctl's number calls read-back goes back.
    if ((_IOC_DIR(request.code) & _IOC_READ) != 0) {
        answer.header.argBytes = std::uint32_t(call.argument.size());
        answer.payload = call.argument;
    }
    if (!giveBlocks(call, request.blockCount, answer.header, answer.payload))
        board_.log("defect: a reply on " + path_ + " did not fit and was cut");
    return answer;
}

Connection::Answer Connection::map(const wire::Request& request) {
    Answer answer;
    const Mapping mapping = handle_->map(request.offset, request.length, request.protection);
    if (mapping.memfd >= 0)
        answer.descriptors.push_back(mapping.memfd);
    else
        answer.header.result = mapping.error < 0 ? mapping.error : -EINVAL;
    return answer;
}

bool Connection::send(const Answer& answer) {
    iovec parts[2] = {
        {const_cast<wire::Response*>(&answer.header), sizeof answer.header},
        {const_cast<std::byte*>(answer.payload.data()), answer.payload.size()},
    };
    alignas(cmsghdr) char control[CMSG_SPACE(mostDescriptors * sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    if (!answer.descriptors.empty()) {
        const std::size_t bytes = answer.descriptors.size() * sizeof(int);
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(bytes);
        cmsghdr* head = CMSG_FIRSTHDR(&message);
        head->cmsg_level = SOL_SOCKET;
        head->cmsg_type = SCM_RIGHTS;
        head->cmsg_len = CMSG_LEN(bytes);
        std::memcpy(CMSG_DATA(head), answer.descriptors.data(), bytes);
    }
    if (::sendmsg(fd_, &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0)
        return true;
    if (errno == EAGAIN)
        return violation("does not read its answers");
    return errno == EPIPE || errno == ECONNRESET ? false : violation(std::strerror(errno));
}

}  // namespace board
