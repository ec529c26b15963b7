#include "tests/board/preload/fakeboard.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace fake {

using board::wire::Kind;
using board::wire::Op;
using board::wire::Request;
using board::wire::Response;
using board::wire::SharedPage;

namespace {

std::int64_t now_ns(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

void mustHold(bool condition, const char* what) {
    if (!condition)
        throw std::runtime_error(std::string("fake board: ") + what + ": " + std::strerror(errno));
}

}  // namespace

Board::Board(std::uint32_t speed) {
    char folder[] = "/tmp/fakeboard.XXXXXX";
    mustHold(::mkdtemp(folder) != nullptr, "no folder");
    folder_ = folder;
    for (const char* part : {"/userdata", "/sys/class/thermal/thermal_zone0", "/sys/dev/char/81:0",
                             "/proc/asound/card1", "/etc", "/usr/bin", "/dev/input"})
        std::filesystem::create_directories(root() + part);
    std::ofstream(root() + "/sys/class/thermal/thermal_zone0/temp") << "41500\n";
    std::ofstream(root() + "/sys/dev/char/81:0/uevent") << "DEVNAME=video0\n";
    std::ofstream(root() + "/dev/input/event0");
    makePage(speed);
    listen();
    wakeUp_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    thread_ = std::thread([this] { serve(); });
}

Board::~Board() {
    stopping_ = true;
    ::eventfd_write(wakeUp_, 1);
    thread_.join();
    while (!clients_.empty()) {
        drop(clients_.begin()->second);
        clients_.erase(clients_.begin());
    }
    ::close(listener_);
    ::close(wakeUp_);
    ::munmap(page_, sizeof *page_);
    std::filesystem::remove_all(folder_);
}

std::string Board::root() const {
    return folder_ + "/" + board::wire::rootName;
}

void Board::makePage(std::uint32_t speed) {
    const std::string path = folder_ + "/" + board::wire::pageName;
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    mustHold(fd >= 0 && ::ftruncate(fd, sizeof(SharedPage)) == 0, "no page");
    void* memory = ::mmap(nullptr, sizeof(SharedPage), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::close(fd);
    mustHold(memory != MAP_FAILED, "page not mapped");
    page_ = new (memory) SharedPage{};
    page_->magic = board::wire::pageMagic;
    page_->version = board::wire::protocolVersion;
    page_->speed = speed;
    page_->monotonicOrigin_ns = now_ns(CLOCK_MONOTONIC);
    page_->realtimeOrigin_ns = now_ns(CLOCK_REALTIME);
    addNode("/dev/video0", 81, 0);
    addNode("/dev/dri/card0", 226, 0);
    addNode("/dev/input/event0", 13, 64);
}

void Board::addNode(const char* path, unsigned major, unsigned minor) {
    board::wire::NodeEntry& node = page_->nodes[page_->nodeCount.load()];
    node.mode = S_IFCHR | 0660;
    node.rdev = makedev(major, minor);
    node.inode = 1000 + page_->nodeCount.load();
    std::strcpy(node.path, path);
    node.present = 1;
    page_->nodeCount.fetch_add(1);
}

void Board::listen() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, (folder_ + "/" + board::wire::socketName).c_str());
    listener_ = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    mustHold(::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                 ::listen(listener_, 128) == 0,
             "no socket");
}

void Board::serve() {
    while (!stopping_) {
        std::vector<pollfd> fds = {{wakeUp_, POLLIN, 0}, {listener_, POLLIN, 0}};
        for (const auto& client : clients_)
            fds.push_back({client.first, POLLIN, 0});
        ::poll(fds.data(), fds.size(), waitTime_ms());
        for (std::size_t i = 2; i < fds.size(); ++i) {
            if (fds[i].revents == 0 || serveOne(clients_[fds[i].fd]))
                continue;
            drop(clients_[fds[i].fd]);
            clients_.erase(fds[i].fd);
            open_ = std::uint32_t(clients_.size());
        }
        if (fds[1].revents != 0)
            accept();
        runDue();
    }
}

int Board::waitTime_ms() {
    if (due_.empty())
        return -1;
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(due_.begin()->first - Clock::now());
    return left.count() < 0 ? 0 : int(left.count()) + 1;
}

void Board::runDue() {
    while (!due_.empty() && due_.begin()->first <= Clock::now()) {
        const auto work = due_.begin()->second;
        due_.erase(due_.begin());
        work();
    }
}

void Board::later(Connection& connection, std::uint64_t delay_ms,
                  std::function<void(Connection&)> work) {
    const int socket = connection.socket;
    due_.emplace(Clock::now() + std::chrono::milliseconds(delay_ms), [this, socket, work] {
        const auto found = clients_.find(socket);
        if (found != clients_.end())
            work(found->second);
    });
}

void Board::accept() {
    const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0)
        return;
    clients_[socket].socket = socket;
    open_ = std::uint32_t(clients_.size());
}

void Board::drop(Connection& connection) {
    for (const int fd :
         {connection.socket, connection.clientEnd, connection.peer, connection.events})
        if (fd >= 0)
            ::close(fd);
}

bool Board::serveOne(Connection& connection) {
    std::vector<std::byte> message(board::wire::maxMessageBytes);
    const ssize_t bytes = ::recv(connection.socket, message.data(), message.size(), 0);
    if (bytes < ssize_t(sizeof(Request)))
        return false;
    ++requests_;
    Request request{};
    std::memcpy(&request, message.data(), sizeof request);
    const Answer reply =
        answer(connection, request, {message.begin() + sizeof request, message.begin() + bytes});
    iovec parts[2] = {{const_cast<Response*>(&reply.header), sizeof reply.header},
                      {const_cast<std::byte*>(reply.payload.data()), reply.payload.size()}};
    alignas(cmsghdr) char control[CMSG_SPACE(2 * sizeof(int))] = {};
    msghdr header{};
    header.msg_iov = parts;
    header.msg_iovlen = 2;
    if (!reply.descriptors.empty()) {
        const std::size_t size = reply.descriptors.size() * sizeof(int);
        header.msg_control = control;
        header.msg_controllen = CMSG_SPACE(size);
        cmsghdr* head = CMSG_FIRSTHDR(&header);
        *head = {CMSG_LEN(size), SOL_SOCKET, SCM_RIGHTS};
        std::memcpy(CMSG_DATA(head), reply.descriptors.data(), size);
    }
    ::sendmsg(connection.socket, &header, MSG_NOSIGNAL);
    if (reply.handedOver)
        ::close(reply.descriptors[0]);
    return true;
}

Board::Answer Board::answer(Connection& connection, const Request& request,
                            std::vector<std::byte> payload) {
    Answer reply;
    switch (request.op) {
        case Op::open:
            open(connection, {reinterpret_cast<const char*>(payload.data()), payload.size()},
                 reply);
            break;
        case Op::ioctl:
            ioctl(connection, request, std::move(payload), reply);
            break;
        case Op::known:
            reply.header.result = knows(request.code) ? 0 : -ENOTTY;
            break;
        case Op::unmap:
            ++connection.lastUnmap.count;
            connection.lastUnmap.offset = request.offset;
            connection.lastUnmap.length = request.length;
            break;
        case Op::map: {
            const int memory = ::memfd_create("fake", MFD_CLOEXEC);
            mustHold(::ftruncate(memory, off_t(request.length)) == 0, "no memory");
            const std::string text = "memory at " + std::to_string(request.offset);
            mustHold(::pwrite(memory, text.data(), text.size(), 0) == ssize_t(text.size()),
                     "pwrite");
            reply.descriptors = {memory};
            reply.handedOver = true;
            break;
        }
    }
    return reply;
}

void Board::open(Connection& connection, const std::string& path, Answer& reply) {
    int ends[2] = {-1, -1};
    // evdev and DRM records are messages of the other end; a camera's socket counts buffers.
    ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
    connection.clientEnd = ends[0];
    connection.peer = ends[1];
    connection.kind = path == "/dev/video0"      ? Kind::v4l2
                      : path == "/dev/dri/card0" ? Kind::drm
                                                 : Kind::evdev;
    connection.slot = nextSlot_++ % board::wire::maxHandles;
    page_->handles[connection.slot] = 0;
    reply.header.kind = connection.kind;
    reply.header.slot = connection.slot;
    reply.descriptors = {connection.clientEnd};
    if (connection.kind == Kind::v4l2) {
        connection.events = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE);
        reply.descriptors.push_back(connection.events);
        reply.header.eventSlot = 1;
    } else {
        connection.clientEnd = -1;  // else the other end's close would not be seen
        reply.handedOver = true;
    }
}

}  // namespace fake
