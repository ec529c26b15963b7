#include "board/preload/park.h"

#include "board/preload/clock.h"
#include "board/preload/raw.h"
#include "board/preload/text.h"

#include <sys/prctl.h>

namespace board::preload {

namespace {

constexpr std::int64_t look_ns = 5000000;  // how often a held call asks whether it may go on
constexpr char ioctlPrefix[] = "ioctl:0x";

bool namesThread(const wire::ParkEntry& entry) {
    if (entry.thread[0] == '\0')
        return true;
    char name[16] = {};
    raw(SYS_prctl, PR_GET_NAME, name, 0, 0, 0);
    for (unsigned i = 0; i < sizeof name; ++i) {
        if (entry.thread[i] != name[i])
            return false;
        if (name[i] == '\0')
            return true;
    }
    return true;
}

bool isActive(const wire::ParkEntry& entry) {
    return entry.active.load(std::memory_order_acquire) != 0;
}

template <typename Matches>
wire::ParkEntry* firstPark(Matches matches) {
    for (wire::ParkEntry& entry : boardPage()->parks)
        if (isActive(entry) && matches(entry) && namesThread(entry))
            return &entry;
    return nullptr;
}

// False when the text is not an ioctl's number.
bool ioctlOf(const char* call, std::uint32_t& number) {
    if (!startsWith(call, ioctlPrefix))
        return false;
    number = 0;
    for (const char* digit = call + sizeof ioctlPrefix - 1; *digit != '\0'; ++digit) {
        const char lower = char(*digit | 0x20);
        const bool decimal = *digit >= '0' && *digit <= '9';
        if (!decimal && (lower < 'a' || lower > 'f'))
            return false;
        number = number << 4 | std::uint32_t(decimal ? *digit - '0' : lower - 'a' + 10);
    }
    return true;
}

}  // namespace

wire::ParkEntry* parkOf(const char* call) {
    return firstPark([call](const wire::ParkEntry& entry) { return equal(entry.call, call); });
}

Parked hold(wire::ParkEntry& entry, std::int64_t deadline_ns, const void* signalMask, bool endure) {
    entry.held.fetch_add(1);
    while (isActive(entry)) {
        std::int64_t slice = look_ns;
        if (deadline_ns != noDeadline) {
            const std::int64_t left = deadline_ns - machineNow_ns(CLOCK_MONOTONIC);
            if (left <= 0)
                return Parked::ranOut;
            slice = left < slice ? left : slice;
        }
        timespec pause = toTimespec(slice);
        if (raw(SYS_ppoll, nullptr, 0, &pause, signalMask, 8) == -EINTR && !endure)
            return Parked::interrupted;
    }
    return Parked::lifted;
}

Parked park(const char* call, std::int64_t deadline_ns, const void* signalMask) {
    wire::ParkEntry* entry = parkOf(call);
    return entry == nullptr ? Parked::no : hold(*entry, deadline_ns, signalMask);
}

Parked parkIoctl(std::uint32_t request) {
    wire::ParkEntry* entry = firstPark([request](const wire::ParkEntry& candidate) {
        std::uint32_t number = 0;
        return ioctlOf(candidate.call, number) && number == request;
    });
    return entry == nullptr ? Parked::no : hold(*entry, noDeadline);
}

}  // namespace board::preload
