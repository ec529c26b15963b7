// What the fake board's ioctls do.
#include "tests/board/preload/fakeboard.h"

#include "board/protocol/nested.h"

#include <linux/input.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace fake {

using board::wire::Kind;
using board::wire::Request;

namespace {

using Bytes = std::vector<std::byte>;

template <typename T>
T as(const Bytes& bytes) {
    T value{};
    std::memcpy(&value, bytes.data(), std::min(sizeof value, bytes.size()));
    return value;
}

template <typename T>
void put(Bytes& bytes, const T& value) {
    bytes.resize(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
}

// Replies of the nested blocks; `sent` are the bytes that came with the request.
int nested(std::uint32_t code, Bytes& argument, std::vector<Bytes>& blocks) {
    if (code == std::uint32_t(VIDIOC_G_EXT_CTRLS)) {
        const std::size_t count = blocks[0].size() / sizeof(v4l2_ext_control);
        auto* controls = reinterpret_cast<v4l2_ext_control*>(blocks[0].data());
        for (std::size_t i = 0; i < count; ++i)
            controls[i].value = int(controls[i].id * 2);
        return 0;
    }
    if (code == std::uint32_t(UVCIOC_CTRL_QUERY)) {
        std::reverse(blocks[0].begin(), blocks[0].end());
        return 0;
    }
    if (code == std::uint32_t(DRM_IOCTL_MODE_GETRESOURCES)) {
        auto resources = as<drm_mode_card_res>(argument);
        const std::uint32_t crtcs[] = {31, 32};
        if (resources.count_crtcs >= 2) {
            blocks[1].resize(sizeof crtcs);
            std::memcpy(blocks[1].data(), crtcs, sizeof crtcs);
        }
        resources.count_crtcs = 2;
        resources.count_fbs = resources.count_connectors = resources.count_encoders = 0;
        put(argument, resources);
        return 0;
    }
    return -ENOTTY;
}

}  // namespace

bool knows(std::uint32_t code) {
    return _IOC_TYPE(code) == 'F' || code == std::uint32_t(VIDIOC_G_EXT_CTRLS) ||
           code == std::uint32_t(UVCIOC_CTRL_QUERY) ||
           code == std::uint32_t(DRM_IOCTL_MODE_GETRESOURCES);
}

void Board::ioctl(Connection& connection, const Request& request, Bytes payload, Answer& reply) {
    Bytes argument(payload.begin(), payload.begin() + request.argBytes);
    std::vector<Bytes> blocks;
    auto at = payload.begin() + request.argBytes;
    for (std::uint32_t i = 0; i < request.blockCount; ++i) {
        blocks.emplace_back(at, at + request.blocks[i].sent);
        at += request.blocks[i].sent;
    }
    int result = 0;
    if (!order(connection, request, argument, result)) {
        if (request.blockCount > 0)
            result = nested(request.code, argument, blocks);
        else if (connection.kind == Kind::evdev && request.code == std::uint32_t(EVIOCGRAB))
            result = as<int>(argument) == 1 ? 0 : -EBUSY;
        else if (connection.kind == Kind::v4l2)
            result = v4l2(connection, request.code);
        else
            result = connection.kind == Kind::evdev ? -EINVAL : -ENOTTY;
    }
    reply.header.result = result;
    if (result < 0 || (_IOC_DIR(request.code) & _IOC_READ) == 0)
        return;
    reply.header.argBytes = std::uint32_t(argument.size());
    reply.payload = argument;
    reply.header.blockCount = request.blockCount;
    for (std::uint32_t i = 0; i < request.blockCount; ++i) {
        const std::size_t bytes =
            std::min<std::size_t>(blocks[i].size(), request.blocks[i].capacity);
        reply.header.blockBytes[i] = std::uint32_t(bytes);
        reply.payload.insert(reply.payload.end(), blocks[i].begin(),
                             blocks[i].begin() + long(bytes));
    }
}

int Board::v4l2(Connection& connection, std::uint32_t code) {
    const std::uint32_t state = page_->handles[connection.slot];
    if (code == std::uint32_t(VIDIOC_DQBUF)) {
        if ((state & board::wire::handleGone) != 0)
            return -ENODEV;
        if ((state & board::wire::handleStreaming) == 0)
            return -EINVAL;
        char byte = 0;
        return ::recv(connection.clientEnd, &byte, 1, MSG_DONTWAIT) == 1 ? 0 : -EAGAIN;
    }
    if (code == std::uint32_t(VIDIOC_DQEVENT)) {
        eventfd_t value = 0;
        return ::eventfd_read(connection.events, &value) == 0 ? 0 : -EAGAIN;
    }
    return -ENOTTY;
}

void Board::parkOn(const Park& park) {
    board::wire::ParkEntry& entry = page_->parks[0];
    std::memcpy(entry.call, park.call, sizeof entry.call);
    std::memcpy(entry.thread, park.thread, sizeof entry.thread);
    entry.held = 0;
    entry.active = 1;
    page_->parkCount = 1;
    if (park.liftAfter_ms == 0)
        return;
    due_.emplace(Clock::now() + std::chrono::milliseconds(park.liftAfter_ms), [this] {
        page_->parks[0].active = 0;
        page_->parkCount = 0;
    });
}

// True when the ioctl is one of the orders.
bool Board::order(Connection& connection, const Request& request, Bytes& argument, int& result) {
    const auto page = page_;
    const auto setBits = [page](Connection& one, std::uint32_t bits, bool on) {
        page->handles[one.slot] =
            on ? page->handles[one.slot] | bits : page->handles[one.slot] & ~bits;
    };
    switch (request.code) {
        case add: {
            auto sum = as<Sum>(argument);
            sum.sum = sum.one + sum.other;
            put(argument, sum);
            break;
        }
        case stream:
            setBits(connection, board::wire::handleStreaming, request.offset != 0);
            break;
        case done:
            later(connection, request.offset,
                  [](Connection& one) { ::send(one.peer, "b", 1, MSG_NOSIGNAL); });
            break;
        case unplug:
            later(connection, request.offset, [setBits](Connection& one) {
                setBits(one, board::wire::handleGone, true);
                ::close(one.peer);
                one.peer = -1;
            });
            break;
        case event:
            later(connection, request.offset,
                  [](Connection& one) { ::eventfd_write(one.events, 1); });
            break;
        case fail:
            result = -int(request.offset);
            break;
        case fake::requests:
            put(argument, requests_.load());
            break;
        case fake::connections:
            put(argument, open_.load());
            break;
        case fileFlags:
            put(argument, request.fileFlags);
            break;
        case unmaps:
            put(argument, connection.lastUnmap);
            break;
        case park:
            parkOn(as<Park>(argument));
            break;
        case held:
            put(argument, page_->parks[0].held.load());
            break;
        case vanish:
            later(connection, request.offset,
                  [](Connection& one) { ::shutdown(one.socket, SHUT_RDWR); });
            break;
        case stopLater:
            later(connection, request.offset, [setBits](Connection& one) {
                setBits(one, board::wire::handleStreaming, false);
            });
            break;
        case step:
            page_->realtimeStep_ns = std::int64_t(request.offset) * 1000000000;
            break;
        case nothing:
            break;
        default:
            return false;
    }
    return true;
}

}  // namespace fake
