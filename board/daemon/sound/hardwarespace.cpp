#include "board/daemon/sound/hardwarespace.h"

#include "board/daemon/sound/interval.h"
#include "board/daemon/stream0.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

namespace board {

namespace {

constexpr std::uint32_t bitsOfByte = 8;
constexpr std::uint32_t microseconds = 1000000;
constexpr unsigned formatNumbers = 64;
// Each narrows something or it was the last; ranges shrink in few steps.
constexpr unsigned mostRounds = 1000;

Interval& of(snd_pcm_hw_params& params, int parameter) {
    return params.intervals[parameter - SNDRV_PCM_HW_PARAM_FIRST_INTERVAL];
}

snd_mask& maskOf(snd_pcm_hw_params& params, int parameter) {
    return params.masks[parameter - SNDRV_PCM_HW_PARAM_FIRST_MASK];
}

bool keepOnly(snd_mask& mask, std::uint64_t allowed) {
    const snd_mask before = mask;
    mask.bits[0] &= std::uint32_t(allowed);
    mask.bits[1] &= std::uint32_t(allowed >> 32);
    for (unsigned i = 2; i < sizeof mask.bits / sizeof mask.bits[0]; ++i)
        mask.bits[i] = 0;
    return !std::equal(std::begin(mask.bits), std::end(mask.bits), std::begin(before.bits));
}

std::uint64_t bitsOf(const snd_mask& mask) {
    return mask.bits[0] | std::uint64_t(mask.bits[1]) << 32;
}

std::uint64_t lowest(std::uint64_t bits) {
    return bits & (~bits + 1);
}

template <typename Use>
void forEachFormat(std::uint64_t formats, Use use) {
    for (unsigned number = 0; number < formatNumbers; ++number)
        if ((formats >> number & 1) != 0)
            use(number, soundFormatBits(int(number)));
}

// What the width of a sample says about the format, and back.
bool applySampleBits(snd_pcm_hw_params& params) {
    snd_mask& formats = maskOf(params, SNDRV_PCM_HW_PARAM_FORMAT);
    Interval& bits = of(params, SNDRV_PCM_HW_PARAM_SAMPLE_BITS);
    std::uint64_t fitting = 0;
    std::uint32_t least = UINT_MAX, most = 0;
    forEachFormat(bitsOf(formats), [&](unsigned number, unsigned width) {
        if (!holds(bits, width))
            return;
        fitting |= std::uint64_t(1) << number;
        least = std::min(least, width);
        most = std::max(most, width);
    });
    const bool changed = keepOnly(formats, fitting);
    return narrow(bits, between(least, most)) || changed;
}

// What each parameter is in terms of others.
bool applyRelations(snd_pcm_hw_params& params) {
    const auto at = [&](int parameter) -> Interval& { return of(params, parameter); };
    Interval& sampleBits = at(SNDRV_PCM_HW_PARAM_SAMPLE_BITS);
    Interval& frameBits = at(SNDRV_PCM_HW_PARAM_FRAME_BITS);
    Interval& channels = at(SNDRV_PCM_HW_PARAM_CHANNELS);
    Interval& rate = at(SNDRV_PCM_HW_PARAM_RATE);
    Interval& periodTime = at(SNDRV_PCM_HW_PARAM_PERIOD_TIME);
    Interval& period = at(SNDRV_PCM_HW_PARAM_PERIOD_SIZE);
    Interval& periodBytes = at(SNDRV_PCM_HW_PARAM_PERIOD_BYTES);
    Interval& periods = at(SNDRV_PCM_HW_PARAM_PERIODS);
    Interval& bufferTime = at(SNDRV_PCM_HW_PARAM_BUFFER_TIME);
    Interval& buffer = at(SNDRV_PCM_HW_PARAM_BUFFER_SIZE);
    Interval& bufferBytes = at(SNDRV_PCM_HW_PARAM_BUFFER_BYTES);

    bool changed = false;
    const auto is = [&](Interval& interval, const Interval& other) {
        changed = narrow(interval, other) || changed;
    };
    is(sampleBits, quotient(frameBits, channels));
    is(frameBits, product(sampleBits, channels));
    is(frameBits, productUnder(periodBytes, bitsOfByte, period));
    is(frameBits, productUnder(bufferBytes, bitsOfByte, buffer));
    is(channels, quotient(frameBits, sampleBits));
    is(rate, productUnder(period, microseconds, periodTime));
    is(rate, productUnder(buffer, microseconds, bufferTime));
    is(periods, quotient(buffer, period));
    is(period, quotient(buffer, periods));
    is(period, productUnder(periodBytes, bitsOfByte, frameBits));
    is(period, productOver(periodTime, rate, microseconds));
    is(buffer, product(period, periods));
    is(buffer, productUnder(bufferBytes, bitsOfByte, frameBits));
    is(buffer, productOver(bufferTime, rate, microseconds));
    is(periodBytes, productOver(period, frameBits, bitsOfByte));
    is(bufferBytes, productOver(buffer, frameBits, bitsOfByte));
    is(periodTime, productUnder(period, microseconds, rate));
    is(bufferTime, productUnder(buffer, microseconds, rate));
    return changed;
}

bool anyEmpty(snd_pcm_hw_params& params) {
    for (int i = SNDRV_PCM_HW_PARAM_FIRST_MASK; i <= SNDRV_PCM_HW_PARAM_LAST_MASK; ++i)
        if (bitsOf(maskOf(params, i)) == 0)
            return true;
    for (int i = SNDRV_PCM_HW_PARAM_FIRST_INTERVAL; i <= SNDRV_PCM_HW_PARAM_LAST_INTERVAL; ++i)
        if (isEmpty(of(params, i)))
            return true;
    return false;
}

bool differs(const Interval& a, const Interval& b) {
    return a.min != b.min || a.max != b.max || a.openmin != b.openmin || a.openmax != b.openmax ||
           a.integer != b.integer || a.empty != b.empty;
}

// Which parameters are not what they were, one bit each.
std::uint32_t changedParameters(snd_pcm_hw_params& before, snd_pcm_hw_params& after) {
    std::uint32_t changed = 0;
    for (int i = SNDRV_PCM_HW_PARAM_FIRST_MASK; i <= SNDRV_PCM_HW_PARAM_LAST_MASK; ++i)
        if (!std::equal(std::begin(maskOf(before, i).bits), std::end(maskOf(before, i).bits),
                        std::begin(maskOf(after, i).bits)))
            changed |= 1U << unsigned(i);
    for (int i = SNDRV_PCM_HW_PARAM_FIRST_INTERVAL; i <= SNDRV_PCM_HW_PARAM_LAST_INTERVAL; ++i)
        if (differs(of(before, i), of(after, i)))
            changed |= 1U << unsigned(i);
    return changed;
}

// The rates of a setting that lie in `wanted`, as a range. False when there is none.
bool ratesWithin(const SoundSetting& setting, const Interval& wanted, std::uint32_t& least,
                 std::uint32_t& most) {
    if (setting.rates_Hz.empty()) {
        Interval common = between(setting.rateMin_Hz, setting.rateMax_Hz);
        narrow(common, wanted);
        if (isEmpty(common))
            return false;
        least = std::min(least, common.min);
        most = std::max(most, common.max);
        return true;
    }
    bool any = false;
    for (const std::uint32_t rate : setting.rates_Hz) {
        if (!holds(wanted, rate))
            continue;
        any = true;
        least = std::min(least, rate);
        most = std::max(most, rate);
    }
    return any;
}

}  // namespace

HardwareSpace::HardwareSpace(SoundLimits limits) : limits_(std::move(limits)) {}

void HardwareSpace::applyLimits(snd_pcm_hw_params& params) const {
    keepOnly(maskOf(params, SNDRV_PCM_HW_PARAM_ACCESS),
             1U << SNDRV_PCM_ACCESS_MMAP_INTERLEAVED | 1U << SNDRV_PCM_ACCESS_RW_INTERLEAVED);
    keepOnly(maskOf(params, SNDRV_PCM_HW_PARAM_SUBFORMAT), 1U << SNDRV_PCM_SUBFORMAT_STD);
    const auto limit = [&](int parameter, std::uint32_t least, std::uint32_t most) {
        narrow(of(params, parameter), between(least, most));
    };
    limit(SNDRV_PCM_HW_PARAM_SAMPLE_BITS, 1, UINT_MAX);
    limit(SNDRV_PCM_HW_PARAM_FRAME_BITS, 1, UINT_MAX);
    limit(SNDRV_PCM_HW_PARAM_CHANNELS, 1, UINT_MAX);
    // Whole frames a period and whole periods a buffer, as engines that move memory need it.
    limit(SNDRV_PCM_HW_PARAM_PERIOD_SIZE, 1, UINT_MAX);
    limit(SNDRV_PCM_HW_PARAM_PERIOD_BYTES, limits_.periodBytesMin, limits_.periodBytesMax);
    limit(SNDRV_PCM_HW_PARAM_PERIODS, limits_.periodsMin, limits_.periodsMax);
    limit(SNDRV_PCM_HW_PARAM_BUFFER_SIZE, 1, UINT_MAX);
    limit(SNDRV_PCM_HW_PARAM_BUFFER_BYTES, limits_.periodBytesMin, limits_.bufferBytesMax);
    if (limits_.periodFrames != 0)
        narrow(of(params, SNDRV_PCM_HW_PARAM_PERIOD_SIZE), exactly(limits_.periodFrames));
    Interval shortest = anyInterval();
    shortest.min = limits_.periodTimeMin_us;
    narrow(of(params, SNDRV_PCM_HW_PARAM_PERIOD_TIME), shortest);
}

// A setting counts as long as format, channels and rate all have something of it.
bool HardwareSpace::applySettings(snd_pcm_hw_params& params) const {
    snd_mask& formats = maskOf(params, SNDRV_PCM_HW_PARAM_FORMAT);
    Interval& channels = of(params, SNDRV_PCM_HW_PARAM_CHANNELS);
    Interval& rate = of(params, SNDRV_PCM_HW_PARAM_RATE);
    std::uint64_t possible = 0;
    std::uint32_t fewest = UINT_MAX, most = 0, slowest = UINT_MAX, fastest = 0;
    for (const SoundSetting& setting : limits_.settings) {
        Interval common = between(setting.channelsMin, setting.channelsMax);
        narrow(common, channels);
        if ((setting.formats & bitsOf(formats)) == 0 || isEmpty(common) ||
            !ratesWithin(setting, rate, slowest, fastest))
            continue;
        possible |= setting.formats;
        fewest = std::min(fewest, common.min);
        most = std::max(most, common.max);
    }
    bool changed = keepOnly(formats, possible);
    changed = narrow(channels, between(fewest, most)) || changed;
    return narrow(rate, between(slowest, fastest)) || changed;
}

bool HardwareSpace::apply(snd_pcm_hw_params& params) const {
    applyLimits(params);
    bool changed = true;
    for (unsigned round = 0; changed && round < mostRounds; ++round) {
        changed = applySettings(params);
        changed = applySampleBits(params) || changed;
        changed = applyRelations(params) || changed;
        if (anyEmpty(params))
            return false;
    }
    return true;
}

void HardwareSpace::describe(snd_pcm_hw_params& params) const {
    params.info = SNDRV_PCM_INFO_MMAP | SNDRV_PCM_INFO_MMAP_VALID | SNDRV_PCM_INFO_INTERLEAVED |
                  SNDRV_PCM_INFO_BLOCK_TRANSFER;
    if (limits_.pause)
        params.info |= SNDRV_PCM_INFO_PAUSE;
    if (limits_.resume)
        params.info |= SNDRV_PCM_INFO_RESUME;
    const Interval& bits = of(params, SNDRV_PCM_HW_PARAM_SAMPLE_BITS);
    params.msbits = isSingle(bits) ? singleValue(bits) : 0;
    const Interval& rate = of(params, SNDRV_PCM_HW_PARAM_RATE);
    params.rate_num = isSingle(rate) ? singleValue(rate) : 0;
    params.rate_den = isSingle(rate) ? 1 : 0;
    params.fifo_size = 0;
}

int HardwareSpace::refine(snd_pcm_hw_params& params) const {
    snd_pcm_hw_params before = params;
    if (!apply(params))
        return -EINVAL;
    params.cmask |= changedParameters(before, params);
    params.rmask = 0;
    describe(params);
    return 0;
}

int HardwareSpace::choose(snd_pcm_hw_params& params, SoundFormat& chosen) const {
    if (const int error = refine(params))
        return error;
    const auto fixMask = [&](int parameter) {
        snd_mask& mask = maskOf(params, parameter);
        return keepOnly(mask, lowest(bitsOf(mask))) ? refine(params) : 0;
    };
    const auto fix = [&](int parameter, bool (*narrowing)(Interval&)) {
        return narrowing(of(params, parameter)) ? refine(params) : 0;
    };
    int error = fixMask(SNDRV_PCM_HW_PARAM_ACCESS);
    error = error != 0 ? error : fixMask(SNDRV_PCM_HW_PARAM_FORMAT);
    error = error != 0 ? error : fixMask(SNDRV_PCM_HW_PARAM_SUBFORMAT);
    error = error != 0 ? error : fix(SNDRV_PCM_HW_PARAM_CHANNELS, narrowToFirst);
    error = error != 0 ? error : fix(SNDRV_PCM_HW_PARAM_RATE, narrowToFirst);
    error = error != 0 ? error : fix(SNDRV_PCM_HW_PARAM_PERIOD_TIME, narrowToFirst);
    error = error != 0 ? error : fix(SNDRV_PCM_HW_PARAM_BUFFER_SIZE, narrowToLast);
    error = error != 0 ? error : fix(SNDRV_PCM_HW_PARAM_TICK_TIME, narrowToFirst);
    if (error != 0)
        return error;
    const auto value = [&](int parameter) { return singleValue(of(params, parameter)); };
    std::uint64_t format = bitsOf(maskOf(params, SNDRV_PCM_HW_PARAM_FORMAT));
    chosen.format = __builtin_ctzll(format);
    chosen.access = __builtin_ctzll(bitsOf(maskOf(params, SNDRV_PCM_HW_PARAM_ACCESS)));
    chosen.sampleBits = value(SNDRV_PCM_HW_PARAM_SAMPLE_BITS);
    chosen.channels = value(SNDRV_PCM_HW_PARAM_CHANNELS);
    chosen.rate_Hz = value(SNDRV_PCM_HW_PARAM_RATE);
    chosen.periodFrames = value(SNDRV_PCM_HW_PARAM_PERIOD_SIZE);
    chosen.bufferFrames = value(SNDRV_PCM_HW_PARAM_BUFFER_SIZE);
    const bool usable = chosen.frameBytes() > 0 && chosen.rate_Hz > 0 && chosen.periodFrames > 0 &&
                        chosen.bufferFrames > 0;
    return usable ? 0 : -EINVAL;
}

}  // namespace board
