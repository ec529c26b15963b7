// The ioctls of an input device's descriptor.
#include "board/daemon/remote/inputhandle.h"
#include "board/daemon/remote/pluggedinput.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace board {

namespace {

constexpr std::int32_t driverVersion = 0x010001;

// Ioctls with a length in their number: the kernel tells them by the rest of it.
constexpr std::uint32_t withoutLength(std::uint32_t request) {
    return request & ~std::uint32_t(_IOC_SIZEMASK << _IOC_SIZESHIFT);
}

constexpr unsigned firstBits = 0x20;  // EVIOCGBIT(type): this and the type

bool asksBits(std::uint32_t request) {
    return _IOC_DIR(request) == _IOC_READ && _IOC_TYPE(request) == 'E' &&
           (_IOC_NR(request) & ~unsigned(EV_MAX)) == firstBits;
}

std::set<std::uint16_t> asSet(const std::vector<std::uint16_t>& codes) {
    return {codes.begin(), codes.end()};
}

}  // namespace

bool InputHandle::knows(std::uint32_t request) const {
    switch (request) {
        case std::uint32_t(EVIOCGVERSION):
        case std::uint32_t(EVIOCGID):
        case std::uint32_t(EVIOCGREP):
        case std::uint32_t(EVIOCSREP):
        case std::uint32_t(EVIOCGRAB):
        case std::uint32_t(EVIOCSCLOCKID):
            return true;
        default:
            break;
    }
    switch (withoutLength(request)) {
        case withoutLength(std::uint32_t(EVIOCGNAME(0))):
        case withoutLength(std::uint32_t(EVIOCGPHYS(0))):
        case withoutLength(std::uint32_t(EVIOCGUNIQ(0))):
        case withoutLength(std::uint32_t(EVIOCGPROP(0))):
        case withoutLength(std::uint32_t(EVIOCGKEY(0))):
        case withoutLength(std::uint32_t(EVIOCGLED(0))):
        case withoutLength(std::uint32_t(EVIOCGSND(0))):
        case withoutLength(std::uint32_t(EVIOCGSW(0))):
            return true;
        default:
            return asksBits(request);
    }
}

int InputHandle::unknownIoctlError() const {
    return input_->gone() ? ENODEV : EINVAL;
}

int InputHandle::ioctl(IoctlCall& call) {
    if (input_->gone())
        return -ENODEV;
    takeWrites();
    const InputDescription& described = input_->description();
    switch (call.request) {
        case std::uint32_t(EVIOCGVERSION):
            call.store(driverVersion);
            return 0;
        case std::uint32_t(EVIOCGID):
            call.store(
                input_id{described.bus, described.vendor, described.product, described.version});
            return 0;
        case std::uint32_t(EVIOCGREP):
        case std::uint32_t(EVIOCSREP):
            return repeat(call);
        case std::uint32_t(EVIOCGRAB):
            return input_->grab(*this, call.load<std::int32_t>() != 0);
        case std::uint32_t(EVIOCSCLOCKID):
            return chooseClock(call);
        default:
            return sized(call);
    }
}

int InputHandle::sized(IoctlCall& call) const {
    const InputDescription& described = input_->description();
    switch (withoutLength(call.request)) {
        case withoutLength(std::uint32_t(EVIOCGNAME(0))):
            return text(call, described.device);
        case withoutLength(std::uint32_t(EVIOCGPHYS(0))):
            return text(call, described.phys);
        case withoutLength(std::uint32_t(EVIOCGUNIQ(0))):
            return text(call, described.uniq);
        case withoutLength(std::uint32_t(EVIOCGPROP(0))):
            return bits(call, {}, INPUT_PROP_MAX);
        case withoutLength(std::uint32_t(EVIOCGKEY(0))):
            return bits(call, input_->keysDown(), KEY_MAX);
        case withoutLength(std::uint32_t(EVIOCGLED(0))):
            return bits(call, input_->ledsLit(), LED_MAX);
        case withoutLength(std::uint32_t(EVIOCGSND(0))):
            return bits(call, {}, SND_MAX);
        case withoutLength(std::uint32_t(EVIOCGSW(0))):
            return bits(call, {}, SW_MAX);
        default:
            return asksBits(call.request) ? eventBits(call, _IOC_NR(call.request) - firstBits)
                                          : -EINVAL;
    }
}

// The text with its end, as much of it as was asked for.
int InputHandle::text(IoctlCall& call, const std::string& text) const {
    if (text.empty())
        return -ENOENT;
    const std::size_t bytes = std::min(text.size() + 1, call.argument.size());
    if (bytes > 0)
        std::memcpy(call.argument.data(), text.c_str(), bytes);
    return int(bytes);
}

// In the kernel's words: as many longs as `highest` needs, or as was asked for.
int InputHandle::bits(IoctlCall& call, const std::set<std::uint16_t>& codes,
                      unsigned highest) const {
    constexpr unsigned longBits = 8 * sizeof(long);
    std::vector<std::uint8_t> all((highest + longBits - 1) / longBits * sizeof(long));
    for (const std::uint16_t code : codes)
        all[code / 8] = std::uint8_t(all[code / 8] | 1u << code % 8);
    const std::size_t bytes = std::min(all.size(), call.argument.size());
    if (bytes > 0)
        std::memcpy(call.argument.data(), all.data(), bytes);
    return int(bytes);
}

int InputHandle::eventBits(IoctlCall& call, unsigned type) const {
    const InputDescription& described = input_->description();
    switch (type) {
        case 0: {
            std::set<std::uint16_t> types = {EV_SYN, EV_KEY};
            if (described.scanCodes)
                types.insert(EV_MSC);
            if (!described.leds.empty())
                types.insert(EV_LED);
            if (input_->repeats())
                types.insert(EV_REP);
            return bits(call, types, EV_MAX);
        }
        case EV_KEY:
            return bits(call, asSet(described.keys), KEY_MAX);
        case EV_MSC:
            return bits(
                call,
                described.scanCodes ? std::set<std::uint16_t>{MSC_SCAN} : std::set<std::uint16_t>{},
                MSC_MAX);
        case EV_LED:
            return bits(call, asSet(described.leds), LED_MAX);
        case EV_REL:
            return bits(call, {}, REL_MAX);
        case EV_ABS:
            return bits(call, {}, ABS_MAX);
        case EV_SND:
            return bits(call, {}, SND_MAX);
        case EV_FF:
            return bits(call, {}, FF_MAX);
        case EV_SW:
            return bits(call, {}, SW_MAX);
        default:
            return -EINVAL;
    }
}

int InputHandle::repeat(IoctlCall& call) {
    if (!input_->repeats())
        return -ENOSYS;
    struct Repeat {
        std::uint32_t delay_ms, period_ms;
    };
    if (call.request == std::uint32_t(EVIOCGREP)) {
        call.store(Repeat{input_->repeatDelay_ms, input_->repeatPeriod_ms});
        return 0;
    }
    const auto wanted = call.load<Repeat>();
    if (wanted.delay_ms > 0)
        input_->repeatDelay_ms = wanted.delay_ms;
    input_->repeatPeriod_ms = wanted.period_ms;
    return 0;
}

}  // namespace board
