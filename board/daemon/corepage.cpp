#include "board/daemon/corepage.h"

#include "board/daemon/eventloop.h"
#include "board/protocol/wire.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <stdexcept>
#include <system_error>

namespace board {

namespace {

// Far from the small numbers that a file system gives its own files.
constexpr std::uint64_t firstInode = 0x100000;

std::int64_t realtime_ns() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return std::int64_t(now.tv_sec) * 1000000000 + now.tv_nsec;
}

void* mapFile(const std::string& path, std::size_t bytes) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0)
        throw std::system_error(errno, std::generic_category(), path);
    void* memory = MAP_FAILED;
    // Other users' clients may map it whatever the daemon's umask is.
    if (::fchmod(fd, 0666) == 0 && ::ftruncate(fd, off_t(bytes)) == 0)
        memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    const int error = errno;
    ::close(fd);
    if (memory == MAP_FAILED) {
        ::unlink(path.c_str());
        throw std::system_error(error, std::generic_category(), path);
    }
    return memory;
}

}  // namespace

CorePage::CorePage(const std::string& path, std::uint32_t speed)
    : path_(path), lastInode_(firstInode), slotTaken_(wire::maxHandles, false) {
    ::unlink(path.c_str());
    page_ = new (mapFile(path, sizeof(wire::SharedPage))) wire::SharedPage{};
    page_->version = wire::protocolVersion;
    page_->speed = speed;
    page_->monotonicOrigin_ns = EventLoop::now_ns();
    page_->realtimeOrigin_ns = realtime_ns();
    // The mark comes last: a client that sees it sees all of the above.
    std::atomic_thread_fence(std::memory_order_release);
    page_->magic = wire::pageMagic;
}

CorePage::~CorePage() {
    ::unlink(path_.c_str());
    ::munmap(page_, sizeof *page_);
}

void CorePage::addNode(const std::string& path, unsigned major, unsigned minor) {
    if (path.size() >= sizeof(wire::NodeEntry::path))
        throw std::runtime_error("node path too long: " + path);
    const std::uint32_t count = page_->nodeCount.load();
    std::uint32_t index = 0;
    while (index < count && path != page_->nodes[index].path)
        ++index;
    if (index == wire::maxNodes)
        throw std::runtime_error("no room for another node: " + path);
    wire::NodeEntry& node = page_->nodes[index];
    node.present.store(0);
    node.mode = S_IFCHR | 0660;
    node.rdev = makedev(major, minor);
    node.inode = ++lastInode_;
    std::memcpy(node.path, path.c_str(), path.size() + 1);
    node.present.store(1);
    if (index == count)
        page_->nodeCount.store(count + 1);
}

void CorePage::removeNode(const std::string& path) {
    for (std::uint32_t i = 0; i < page_->nodeCount.load(); ++i)
        if (path == page_->nodes[i].path)
            page_->nodes[i].present.store(0);
}

std::optional<std::uint32_t> CorePage::takeSlot() {
    for (std::uint32_t tried = 0; tried < wire::maxHandles; ++tried) {
        const std::uint32_t slot = (nextSlot_ + tried) % wire::maxHandles;
        if (slotTaken_[slot])
            continue;
        slotTaken_[slot] = true;
        nextSlot_ = (slot + 1) % wire::maxHandles;
        page_->handles[slot].store(0);
        return slot;
    }
    return std::nullopt;
}

void CorePage::giveBackSlot(std::uint32_t slot) {
    slotTaken_[slot] = false;
}

void CorePage::setHandleState(std::uint32_t slot, std::uint32_t bits) {
    if (slot < wire::maxHandles)
        page_->handles[slot].store(bits);
}

std::optional<unsigned> CorePage::park(const std::string& call, const std::string& thread) {
    for (unsigned tried = 0; tried < wire::maxParks; ++tried) {
        const unsigned index = (nextPark_ + tried) % wire::maxParks;
        wire::ParkEntry& entry = page_->parks[index];
        if (entry.active.load() != 0)
            continue;
        nextPark_ = (index + 1) % wire::maxParks;
        entry.held.store(0);
        std::memset(entry.call, 0, sizeof entry.call);
        std::memset(entry.thread, 0, sizeof entry.thread);
        std::memcpy(entry.call, call.data(), std::min(call.size(), sizeof entry.call - 1));
        std::memcpy(entry.thread, thread.data(), std::min(thread.size(), sizeof entry.thread - 1));
        entry.active.store(1);
        page_->parkCount.fetch_add(1);
        return index;
    }
    return std::nullopt;
}

bool CorePage::unpark(unsigned index) {
    if (index >= wire::maxParks || page_->parks[index].active.load() == 0)
        return false;
    page_->parks[index].active.store(0);
    page_->parkCount.fetch_sub(1);
    return true;
}

std::vector<CorePage::Park> CorePage::parks() const {
    std::vector<Park> list;
    for (unsigned i = 0; i < wire::maxParks; ++i) {
        const wire::ParkEntry& entry = page_->parks[i];
        if (entry.active.load() == 0)
            continue;
        // Clients can write here: never read past the field.
        list.push_back({i, std::string(entry.call, ::strnlen(entry.call, sizeof entry.call)),
                        std::string(entry.thread, ::strnlen(entry.thread, sizeof entry.thread)),
                        entry.held.load()});
    }
    return list;
}

}  // namespace board
