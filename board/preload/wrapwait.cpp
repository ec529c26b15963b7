// poll and select.
#include "board/preload/clock.h"
#include "board/preload/handles.h"
#include "board/preload/next.h"
#include "board/preload/park.h"
#include "board/preload/waiting.h"

#include <alloca.h>
#include <poll.h>
#include <sys/select.h>

#include <initializer_list>

using namespace board::preload;

namespace {

constexpr short readable = POLLIN | POLLRDNORM | POLLRDBAND;
constexpr short writable = POLLOUT | POLLWRNORM | POLLWRBAND;

bool nothingToDo() {
    return !anyOpen() && !anyParks() && !timeIsBoards();
}

// A wait's end as a machine time; parks and restarts shorten what is left.
class Limit {
  public:
    explicit Limit(std::int64_t board_ns)
        : deadline_(board_ns < 0 ? noDeadline
                                 : machineNow_ns(CLOCK_MONOTONIC) + toMachineLength_ns(board_ns)) {}
    std::int64_t deadline() const { return deadline_; }
    // Null: for ever.
    const timespec* left() {
        if (deadline_ == noDeadline)
            return nullptr;
        left_ = toTimespec(deadline_ - machineNow_ns(CLOCK_MONOTONIC));
        return &left_;
    }

  private:
    std::int64_t deadline_;
    timespec left_{};
};

bool anyBoards(const pollfd* fds, nfds_t count) {
    for (nfds_t i = 0; i < count; ++i)
        if (isBoards(fds[i].fd))
            return true;
    return false;
}

// poll with a time-out in board time (negative: none). The count, or -errno.
long pollBoard(pollfd* fds, nfds_t count, std::int64_t timeout_ns, const sigset_t* mask) {
    Limit limit(timeout_ns);
    switch (anyParks() ? park("poll", limit.deadline(), mask) : Parked::no) {
        case Parked::interrupted:
            return -EINTR;
        case Parked::ranOut:
            for (nfds_t i = 0; i < count; ++i)
                fds[i].revents = 0;
            return 0;
        default:
            break;
    }
    if (anyBoards(fds, count)) {
        auto* room = static_cast<pollfd*>(alloca(2 * count * sizeof(pollfd)));
        return waitForAny(fds, unsigned(count), room, limit.left(), mask);
    }
    NEXT(ppoll);
    const int ready = next(fds, count, limit.left(), mask);
    return ready < 0 ? -errno : ready;
}

bool needsBoard(const pollfd* fds, nfds_t count) {
    return anyParks() || timeIsBoards() || anyBoards(fds, count);
}

int pollMilliseconds(pollfd* fds, nfds_t count, int timeout_ms) {
    const std::int64_t timeout_ns = timeout_ms < 0 ? -1 : std::int64_t(timeout_ms) * 1000000;
    return toLibc<int>(pollBoard(fds, count, timeout_ns, nullptr));
}

int pollTimespec(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* mask) {
    if (timeout != nullptr && !isValid(*timeout))
        return toLibc<int>(-EINVAL);
    return toLibc<int>(pollBoard(fds, count, timeout == nullptr ? -1 : toNs(*timeout), mask));
}

struct Sets {
    int count;
    fd_set* read;
    fd_set* write;
    fd_set* except;
};

bool isIn(const fd_set* set, int fd) {
    return set != nullptr && FD_ISSET(fd, set);
}

short eventsOf(const Sets& sets, int fd) {
    return short((isIn(sets.read, fd) ? readable : 0) | (isIn(sets.write, fd) ? writable : 0) |
                 (isIn(sets.except, fd) ? POLLPRI : 0));
}

bool anyBoards(const Sets& sets) {
    for (int fd = 0; anyOpen() && fd < sets.count && fd < FD_SETSIZE; ++fd)
        if (isBoards(fd) && eventsOf(sets, fd) != 0)
            return true;
    return false;
}

void empty(const Sets& sets) {
    for (fd_set* set : {sets.read, sets.write, sets.except})
        for (int fd = 0; set != nullptr && fd < sets.count; ++fd)
            FD_CLR(fd, set);
}

long mark(const Sets& sets, const pollfd& one) {
    const short got = one.revents;
    long bits = 0;
    const auto add = [&](fd_set* set, short asked, short answer) {
        if ((one.events & asked) == 0 || (got & answer) == 0)
            return;
        FD_SET(one.fd, set);
        ++bits;
    };
    add(sets.read, readable, short(readable | POLLHUP | POLLERR));
    add(sets.write, writable, short(writable | POLLERR));
    add(sets.except, POLLPRI, POLLPRI);
    return bits;
}

// select with descriptors of the board, by way of poll.
long selectByPoll(const Sets& sets, const timespec* timeout, const sigset_t* mask) {
    auto* wanted = static_cast<pollfd*>(alloca(3 * std::size_t(sets.count) * sizeof(pollfd)));
    unsigned count = 0;
    for (int fd = 0; fd < sets.count; ++fd)
        if (const short events = eventsOf(sets, fd); events != 0)
            wanted[count++] = {fd, events, 0};
    const long ready = waitForAny(wanted, count, wanted + count, timeout, mask);
    if (ready < 0)
        return ready;
    for (unsigned i = 0; i < count; ++i)
        if ((wanted[i].revents & POLLNVAL) != 0)
            return -EBADF;
    empty(sets);
    long bits = 0;
    for (unsigned i = 0; i < count; ++i)
        bits += mark(sets, wanted[i]);
    return bits;
}

// select with a time-out in board time (negative: none). The count, or -errno.
long selectBoard(const Sets& sets, Limit& limit, const sigset_t* mask) {
    switch (anyParks() ? park("select", limit.deadline(), mask) : Parked::no) {
        case Parked::interrupted:
            return -EINTR;
        case Parked::ranOut:
            empty(sets);
            return 0;
        default:
            break;
    }
    if (anyBoards(sets))
        return selectByPoll(sets, limit.left(), mask);
    NEXT(pselect);
    const int ready = next(sets.count, sets.read, sets.write, sets.except, limit.left(), mask);
    return ready < 0 ? -errno : ready;
}

bool needsBoard(const Sets& sets) {
    return sets.count >= 0 && sets.count <= FD_SETSIZE &&
           (anyParks() || timeIsBoards() || anyBoards(sets));
}

}  // namespace

WRAPPER(int, poll, (pollfd * fds, nfds_t count, int timeout_ms)) {
    NEXT(poll);
    if (nothingToDo() || !needsBoard(fds, count))
        return next(fds, count, timeout_ms);
    return pollMilliseconds(fds, count, timeout_ms);
}

WRAPPER(int, __poll_chk, (pollfd * fds, nfds_t count, int timeout_ms, std::size_t bytes)) {
    NEXT_AS(__poll_chk, int(pollfd*, nfds_t, int, std::size_t));
    // libc's own check ends the program when the array is too short.
    if (nothingToDo() || bytes / sizeof(pollfd) < count || !needsBoard(fds, count))
        return next(fds, count, timeout_ms, bytes);
    return pollMilliseconds(fds, count, timeout_ms);
}

WRAPPER(int, ppoll, (pollfd * fds, nfds_t count, const timespec* timeout, const sigset_t* mask)) {
    NEXT(ppoll);
    if (nothingToDo() || !needsBoard(fds, count))
        return next(fds, count, timeout, mask);
    return pollTimespec(fds, count, timeout, mask);
}

WRAPPER(int, __ppoll_chk,
        (pollfd * fds, nfds_t count, const timespec* timeout, const sigset_t* mask,
         std::size_t bytes)) {
    NEXT_AS(__ppoll_chk, int(pollfd*, nfds_t, const timespec*, const sigset_t*, std::size_t));
    if (nothingToDo() || bytes / sizeof(pollfd) < count || !needsBoard(fds, count))
        return next(fds, count, timeout, mask, bytes);
    return pollTimespec(fds, count, timeout, mask);
}

WRAPPER(int, select, (int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout)) {
    const Sets sets = {count, read, write, except};
    NEXT(select);
    if (nothingToDo() || !needsBoard(sets))
        return next(count, read, write, except, timeout);
    if (timeout != nullptr && (timeout->tv_sec < 0 || timeout->tv_usec < 0))
        return toLibc<int>(-EINVAL);
    const std::int64_t timeout_ns =
        timeout == nullptr ? -1 : toNs({timeout->tv_sec, 0}) + timeout->tv_usec * 1000;
    Limit limit(timeout_ns);
    const long result = selectBoard(sets, limit, nullptr);
    if (timeout != nullptr) {
        // Linux tells what is left of the time.
        const timespec left = toTimespec(toBoardLength_ns(toNs(*limit.left())));
        *timeout = {left.tv_sec, left.tv_nsec / 1000};
    }
    return toLibc<int>(result);
}

WRAPPER(int, pselect,
        (int count, fd_set* read, fd_set* write, fd_set* except, const timespec* timeout,
         const sigset_t* mask)) {
    const Sets sets = {count, read, write, except};
    NEXT(pselect);
    if (nothingToDo() || !needsBoard(sets))
        return next(count, read, write, except, timeout, mask);
    if (timeout != nullptr && !isValid(*timeout))
        return toLibc<int>(-EINVAL);
    Limit limit(timeout == nullptr ? -1 : toNs(*timeout));
    return toLibc<int>(selectBoard(sets, limit, mask));
}
