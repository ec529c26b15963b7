#include "tests/unit/camera/fakerig.h"

#include <fcntl.h>
#include <linux/uvcvideo.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>

namespace {

std::atomic<FakeRig*> installed{nullptr};

int eventNumber(const std::string& path) {
    int number = -1;
    return std::sscanf(path.c_str(), "/dev/input/event%d", &number) == 1 ? number : -1;
}

}  // namespace

FakeRig::FakeRig() {
    installed = this;
}

FakeRig::~FakeRig() {
    installed = nullptr;
    for (const auto& [number, sides] : oldSides_) {
        for (const int side : sides) {
            ::close(side);
        }
    }
}

FakeRig* FakeRig::current() {
    return installed;
}

void FakeRig::plugReceiver(int number, const std::string& name) {
    const std::lock_guard<std::mutex> guard(lock_);
    auto receiver = std::make_shared<Receiver>();
    receiver->name = name;
    receivers_[number] = std::move(receiver);
}

void FakeRig::unplugReceiver(int number, bool quietly) {
    const std::lock_guard<std::mutex> guard(lock_);
    receivers_.at(number)->gone = true;
    receivers_.at(number)->quiet = quietly;
    receivers_.erase(number);
}

bool FakeRig::waitOpened(unsigned times) {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, deadline, [&] { return opened_ >= times; });
}

bool FakeRig::waitSearched(unsigned times) {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, deadline, [&] { return searches_ >= times; });
}

void FakeRig::send(int number, int type, int code, int value) {
    input_event event{};
    event.type = static_cast<std::uint16_t>(type);
    event.code = static_cast<std::uint16_t>(code);
    event.value = value;
    std::vector<int> sides;
    {
        const std::lock_guard<std::mutex> guard(lock_);
        for (auto& [fd, open] : open_) {
            if (open.receiver != nullptr && open.number == number && !open.receiver->gone) {
                open.sent += sizeof event;
                open.drained = false;
                sides.push_back(open.testSide);
            }
        }
    }
    for (const int side : sides) {
        // Nobody may be left to read it.
        ::send(side, &event, sizeof event, MSG_NOSIGNAL);
    }
}

void FakeRig::press(int number, int key) {
    send(number, EV_MSC, MSC_SCAN, 0x70000 + key);
    send(number, EV_KEY, key, 1);
    send(number, EV_SYN, SYN_REPORT, 0);
}

void FakeRig::release(int number, int key) {
    send(number, EV_MSC, MSC_SCAN, 0x70000 + key);
    send(number, EV_KEY, key, 0);
    send(number, EV_SYN, SYN_REPORT, 0);
}

void FakeRig::repeat(int number, int key) {
    send(number, EV_KEY, key, 2);
    send(number, EV_SYN, SYN_REPORT, 1);
}

bool FakeRig::settle() {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, deadline, [this] {
        return std::all_of(open_.begin(), open_.end(), [](const auto& entry) {
            return entry.second.receiver == nullptr || entry.second.drained;
        });
    });
}

std::vector<input_event> FakeRig::written(int number) {
    const std::lock_guard<std::mutex> guard(lock_);
    std::vector<int> sides = oldSides_[number];
    for (const auto& [fd, open] : open_) {
        if (open.number == number) {
            sides.push_back(open.testSide);
        }
    }
    std::vector<input_event> events;
    for (const int side : sides) {
        input_event event{};
        while (recv(side, &event, sizeof event, MSG_DONTWAIT) == sizeof event) {
            events.push_back(event);
        }
    }
    return events;
}

void FakeRig::tell(const std::string& what) {
    told_.push_back(what);
    lastTold_ = std::chrono::steady_clock::now();
}

std::vector<std::string> FakeRig::told() const {
    const std::lock_guard<std::mutex> guard(lock_);
    return told_;
}

bool FakeRig::waitTold(std::size_t count) {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, deadline, [&] { return told_.size() >= count; });
}

std::chrono::steady_clock::time_point FakeRig::lastTold() const {
    const std::lock_guard<std::mutex> guard(lock_);
    return lastTold_;
}

std::size_t FakeRig::openDescriptors() const {
    const std::lock_guard<std::mutex> guard(lock_);
    return open_.size();
}

int FakeRig::openFlags(const std::string& path) const {
    const std::lock_guard<std::mutex> guard(lock_);
    const auto found = openFlags_.find(path);
    return found == openFlags_.end() ? -1 : found->second;
}

unsigned FakeRig::openings(const std::string& path) const {
    const std::lock_guard<std::mutex> guard(lock_);
    const auto found = openings_.find(path);
    return found == openings_.end() ? 0 : found->second;
}

bool FakeRig::owns(int fd) const {
    const std::lock_guard<std::mutex> guard(lock_);
    return open_.count(fd) != 0;
}

bool FakeRig::exists(const std::string& path) const {
    const std::lock_guard<std::mutex> guard(lock_);
    return receivers_.count(eventNumber(path)) != 0;
}

int FakeRig::open(const std::string& path, int flags) {
    const std::lock_guard<std::mutex> guard(lock_);
    const int number = eventNumber(path);
    ++openings_[path];
    openFlags_[path] = flags;
    if (number == 9 && (flags & O_ACCMODE) == O_RDONLY) {
        ++searches_;
        changed_.notify_all();
    }
    const bool isCamera = path == cameraNode;
    if (isCamera ? cameraGone.load() : receivers_.count(number) == 0) {
        return -ENOENT;
    }
    const bool forWriting = (flags & O_ACCMODE) == O_RDWR;
    if (!isCamera && forWriting && receiversRefuse) {
        return -EACCES;
    }
    int sides[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sides) == -1) {
        return -errno;
    }
    if ((flags & O_NONBLOCK) != 0) {
        fcntl(sides[0], F_SETFL, O_NONBLOCK);
    }
    Open open;
    open.receiver = isCamera ? nullptr : receivers_.at(number);
    open.number = number;
    open.testSide = sides[1];
    open_[sides[0]] = open;
    if (!isCamera && forWriting) {
        ++opened_;
        changed_.notify_all();
    }
    return sides[0];
}

int FakeRig::closed(int fd) {
    const std::lock_guard<std::mutex> guard(lock_);
    const Open open = open_.at(fd);
    open_.erase(fd);
    changed_.notify_all();
    if (open.receiver == nullptr) {
        return open.testSide;
    }
    oldSides_[open.number].push_back(open.testSide);
    return -1;
}

ssize_t FakeRig::read(int fd, void* buffer, std::size_t size) {
    const std::lock_guard<std::mutex> guard(lock_);
    Open& open = open_.at(fd);
    if (open.receiver != nullptr && open.receiver->gone) {
        return open.receiver->quiet ? -EAGAIN : -ENODEV;
    }
    const ssize_t got = recv(fd, buffer, size, MSG_DONTWAIT);
    if (got > 0) {
        open.taken += static_cast<std::size_t>(got);
        return got;
    }
    // Asked for more: what was taken before is dealt with.
    if (open.taken == open.sent) {
        open.drained = true;
        changed_.notify_all();
    }
    return got == 0 ? 0 : -errno;
}

int FakeRig::ioctl(int fd, unsigned long request, void* argument) {
    std::unique_lock<std::mutex> guard(lock_);
    const std::shared_ptr<Receiver> receiver = open_.at(fd).receiver;
    if (receiver != nullptr) {
        return receiver->gone ? -ENODEV : receiverIoctl(*receiver, request, argument);
    }
    if (cameraGone) {
        return -ENODEV;
    }
    if (request == UVCIOC_CTRL_QUERY && unitAnswer.count() != 0) {
        guard.unlock();
        std::this_thread::sleep_for(unitAnswer);
        guard.lock();
    }
    const int result = cameraIoctl(request, argument);
    changed_.notify_all();
    return result;
}

int FakeRig::receiverIoctl(const Receiver& receiver, unsigned long request, void* argument) const {
    const std::size_t room = _IOC_SIZE(request);
    if (request == EVIOCGVERSION) {
        *static_cast<int*>(argument) = EV_VERSION;
        return 0;
    }
    if (_IOC_TYPE(request) == 'E' && _IOC_NR(request) == _IOC_NR(EVIOCGNAME(0))) {
        const std::size_t length = std::min(room, receiver.name.size() + 1);
        std::memcpy(argument, receiver.name.c_str(), length);
        return static_cast<int>(length);
    }
    if (_IOC_TYPE(request) == 'E' && _IOC_NR(request) == _IOC_NR(EVIOCGBIT(0, 0))) {
        const unsigned types = 1U << EV_SYN | 1U << EV_KEY | 1U << EV_MSC | 1U << EV_LED;
        std::memcpy(argument, &types, std::min(room, sizeof types));
        return static_cast<int>(std::min(room, sizeof types));
    }
    return -EINVAL;
}
