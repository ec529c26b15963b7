#include "board/daemon/viewserver.h"

#include "board/daemon/payloadcopy.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace board {

namespace {

constexpr unsigned packetsAtOnce = 32;  // of one client before the others' turn
// Room for unread packets that come against credit, some more than `maxViewCredit` of them: each
// holds memory.
constexpr int creditRoomBytes = 16 << 10;
constexpr std::uint32_t soundPacketsPerSecond = 100;

bool againstCredit(wire::ViewKind kind) {
    return kind == wire::ViewKind::screen || kind == wire::ViewKind::camera;
}

bool goesOn(const wire::ViewSound& before, const wire::ViewSound& next) {
    return before.rate_Hz == next.rate_Hz && before.channels == next.channels &&
           before.format == next.format && before.first + before.frames == next.first;
}

}  // namespace

struct ViewServer::Client {
    explicit Client(int descriptor) : fd(descriptor) {}
    ~Client() { ::close(fd); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    int fd;
    bool begun = false;  // `kind` is known
    wire::ViewKind kind = wire::ViewKind::screen;
    unsigned credit = 0;
    std::uint64_t sentChange = 0;  // of the screen
    bool dropped = false;
};

struct ViewServer::Packet {
    const void* header;
    std::size_t headerBytes;
    const std::uint8_t* body = nullptr;
    std::size_t bodyBytes = 0;
    int descriptors[2] = {-1, -1};  // the caller's; -1: none
};

ViewServer::ViewServer(EventLoop& loop, const std::string& path, Rig& rig)
    : loop_(loop),
      rig_(rig),
      listener_(loop, path, SOCK_SEQPACKET, [this](int fd) { accepted(fd); }) {
    rig_.setWatcher(this);
}

ViewServer::~ViewServer() {
    rig_.setWatcher(nullptr);
    for (const auto& entry : clients_)
        loop_.unwatch(entry.first);
}

std::vector<ViewServer::ClientRef>& ViewServer::watching(wire::ViewKind kind) {
    return watching_[std::uint32_t(kind) - 1];
}

void ViewServer::accepted(int fd) {
    const auto client = std::make_shared<Client>(fd);
    if (clients_.size() >= wire::maxViewClients)
        return;
    clients_[fd] = client;
    loop_.watch(fd, EPOLLIN, [this, client](std::uint32_t events) { ready(*client, events); });
}

void ViewServer::ready(Client& client, std::uint32_t events) {
    for (unsigned i = 0; i < packetsAtOnce && !client.dropped; ++i) {
        std::uint8_t packet[sizeof(wire::ViewRequest) + 1];
        const ssize_t bytes = ::recv(client.fd, packet, sizeof packet, MSG_DONTWAIT);
        if (bytes < 0 && (errno == EAGAIN || errno == EINTR))
            break;
        if (bytes <= 0 || !take(client, packet, std::size_t(bytes)))
            return drop(client);
    }
    if ((events & (EPOLLHUP | EPOLLERR)) != 0)
        drop(client);
}

// What a client sent; false when it is not as agreed.
bool ViewServer::take(Client& client, const std::uint8_t* packet, std::size_t bytes) {
    if (!client.begun)
        return begin(client, packet, bytes);
    if (!againstCredit(client.kind) || bytes != 1 || client.credit >= wire::maxViewCredit)
        return false;
    ++client.credit;
    if (client.kind == wire::ViewKind::screen)
        showScreen(client);
    return true;
}

bool ViewServer::begin(Client& client, const std::uint8_t* packet, std::size_t bytes) {
    wire::ViewRequest request{};
    if (bytes != sizeof request)
        return false;
    std::memcpy(&request, packet, sizeof request);
    const auto kind = std::uint32_t(request.kind);
    if (request.version != wire::viewVersion || kind < std::uint32_t(wire::ViewKind::screen) ||
        kind > std::uint32_t(wire::ViewKind::flips))
        return false;
    client.begun = true;
    client.kind = request.kind;
    if (againstCredit(client.kind))
        ::setsockopt(client.fd, SOL_SOCKET, SO_SNDBUF, &creditRoomBytes, sizeof creditRoomBytes);
    watching(client.kind).push_back(clients_.at(client.fd));
    return true;
}

void ViewServer::screenChanged(const wire::ViewFlip* flip) {
    if (flip != nullptr && !watching(wire::ViewKind::flips).empty()) {
        const std::vector<ClientRef> clients = watching(wire::ViewKind::flips);
        for (const ClientRef& client : clients)
            send(*client, {flip, sizeof *flip});
    }
    if (watching(wire::ViewKind::screen).empty())
        return;
    const std::vector<ClientRef> clients = watching(wire::ViewKind::screen);
    for (const ClientRef& client : clients)
        showScreen(*client);
}

// The picture on screen, if the client wants it and has not got it.
void ViewServer::showScreen(Client& client) {
    if (client.credit == 0)
        return;
    const OnScreen screen = rig_.display().onScreen();
    if (screen.change == client.sentChange)
        return;
    client.sentChange = screen.change;
    --client.credit;
    Packet packet{&screen.picture, sizeof screen.picture};
    std::copy(std::begin(screen.descriptors), std::end(screen.descriptors), packet.descriptors);
    send(client, packet);
}

void ViewServer::payloadDelivered(const wire::ViewPayload& about, const std::uint8_t* payload) {
    if (watching(wire::ViewKind::camera).empty())
        return;
    std::vector<ClientRef> clients = watching(wire::ViewKind::camera);
    clients.erase(std::remove_if(clients.begin(), clients.end(),
                                 [](const ClientRef& client) { return client->credit == 0; }),
                  clients.end());
    if (clients.empty())
        return;
    // One copy for all: it cannot be changed any more.
    const PayloadCopy copy(payload, about.bytes);
    if (!copy.made())
        return;
    for (const ClientRef& client : clients) {
        --client->credit;
        Packet packet{&about, sizeof about};
        packet.descriptors[0] = copy.descriptor();
        send(*client, packet);
    }
}

void ViewServer::soundMoved(const wire::ViewSound& about, const std::uint8_t* frames,
                            std::size_t bytes) {
    SoundPart& part = sound_[std::uint32_t(about.card)];
    if (watching(wire::ViewKind::sound).empty()) {
        part = {};
        return;
    }
    if (!goesOn(part.about, about))
        sendSound(part);
    const std::size_t frameBytes = about.frames != 0 ? bytes / about.frames : 0;
    if (frameBytes == 0)
        return;
    for (std::uint32_t done = 0; done < about.frames;) {
        const auto room = std::uint32_t((wire::maxViewSoundBytes - part.bytes.size()) / frameBytes);
        const std::uint32_t count = std::min(about.frames - done, room);
        if (part.bytes.empty()) {
            part.about = about;
            part.about.first = about.first + done;
            part.about.frames = 0;
        }
        const std::uint8_t* from = frames + done * frameBytes;
        part.bytes.insert(part.bytes.end(), from, from + count * frameBytes);
        part.about.frames += count;
        part.about.time_ns = about.time_ns;
        done += count;
        if (done < about.frames)
            sendSound(part);
    }
    if (part.about.frames >= about.rate_Hz / soundPacketsPerSecond)
        sendSound(part);
}

void ViewServer::soundStopped(wire::ViewCard card) {
    sendSound(sound_[std::uint32_t(card)]);
}

void ViewServer::sendSound(SoundPart& part) {
    if (part.bytes.empty())
        return;
    Packet packet{&part.about, sizeof part.about};
    packet.body = part.bytes.data();
    packet.bodyBytes = part.bytes.size();
    const std::vector<ClientRef> clients = watching(wire::ViewKind::sound);
    for (const ClientRef& client : clients)
        send(*client, packet);
    part.bytes.clear();
}

void ViewServer::send(Client& client, const Packet& packet) {
    if (client.dropped)
        return;
    iovec parts[2] = {{const_cast<void*>(packet.header), packet.headerBytes},
                      {const_cast<std::uint8_t*>(packet.body), packet.bodyBytes}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = packet.bodyBytes != 0 ? 2 : 1;
    alignas(cmsghdr) char control[CMSG_SPACE(2 * sizeof(int))] = {};
    const std::size_t count = packet.descriptors[0] < 0 ? 0 : (packet.descriptors[1] < 0 ? 1 : 2);
    if (count != 0) {
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(count * sizeof(int));
        cmsghdr* rights = CMSG_FIRSTHDR(&message);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(count * sizeof(int));
        std::memcpy(CMSG_DATA(rights), packet.descriptors, count * sizeof(int));
    }
    if (::sendmsg(client.fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0)
        return;
    const bool full = errno == EAGAIN || errno == EINTR || errno == ENOBUFS || errno == ENOMEM;
    // Who keeps to its credit has room for what it asked for.
    if (!full || againstCredit(client.kind))
        drop(client);
}

void ViewServer::drop(Client& client) {
    if (client.dropped)
        return;
    client.dropped = true;
    loop_.unwatch(client.fd);
    const ClientRef last = clients_.at(client.fd);
    clients_.erase(client.fd);
    if (!client.begun)
        return;
    std::vector<ClientRef>& others = watching(client.kind);
    others.erase(std::remove(others.begin(), others.end(), last), others.end());
}

}  // namespace board
