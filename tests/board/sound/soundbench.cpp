#include "tests/board/sound/soundbench.h"

#include <poll.h>

#include <algorithm>
#include <climits>

namespace soundbench {

namespace {

constexpr std::int64_t patience_ns = 20000000000;

board::SoundLimits usualLimits(bool resume) {
    board::SoundSetting setting;
    setting.formats = 1U << SNDRV_PCM_FORMAT_S16_LE;
    setting.channelsMin = setting.channelsMax = 2;
    setting.rates_Hz = {48000};
    board::SoundLimits limits;
    limits.settings.push_back(setting);
    limits.resume = resume;
    return limits;
}

}  // namespace

Bench::Bench(std::uint32_t speed) : clock_(speed, board::EventLoop::now_ns()) {}

bool Bench::runUntil(const std::function<bool()>& done) {
    const std::int64_t deadline = board::EventLoop::now_ns() + patience_ns;
    bool held = done();
    std::function<void()> look = [&] {
        held = done();
        if (held || board::EventLoop::now_ns() > deadline)
            loop_.stop();
        else
            loop_.at(board::EventLoop::now_ns() + 1000000, look);
    };
    if (!held) {
        loop_.at(board::EventLoop::now_ns(), look);
        loop_.run();
    }
    return held;
}

void Bench::runFor(std::int64_t board_ns) {
    const std::int64_t end = clock_.now_ns() + board_ns;
    runUntil([&] { return clock_.now_ns() >= end; });
}

void Notes::move(std::uint8_t* frames, std::uint32_t count) {
    std::uint8_t* const end = frames + std::size_t(count) * frameBytes;
    lowest = lowest == nullptr ? frames : std::min<const std::uint8_t*>(lowest, frames);
    highest = std::max<const std::uint8_t*>(highest, end);
    if (!hears) {
        played.insert(played.end(), frames, end);
        return;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        ++next;
        for (int byte = 0; byte < 4; ++byte)
            *frames++ = std::uint8_t(next >> (8 * byte));
    }
}

std::size_t Notes::countOf(const std::string& event) const {
    return std::size_t(std::count(events.begin(), events.end(), event));
}

snd_pcm_hw_params anyParameters() {
    snd_pcm_hw_params params{};
    for (snd_mask& mask : params.masks)
        std::fill(std::begin(mask.bits), std::end(mask.bits), UINT_MAX);
    for (snd_interval& interval : params.intervals)
        interval.max = UINT_MAX;
    params.rmask = UINT_MAX;
    return params;
}

void setFormat(snd_pcm_hw_params& params, int format) {
    snd_mask& mask = params.masks[SNDRV_PCM_HW_PARAM_FORMAT];
    mask = {};
    mask.bits[format / 32] = 1U << unsigned(format % 32);
}

void set(snd_pcm_hw_params& params, int parameter, std::uint32_t least, std::uint32_t most) {
    snd_interval& interval = params.intervals[parameter - SNDRV_PCM_HW_PARAM_FIRST_INTERVAL];
    interval = {};
    interval.min = least;
    interval.max = most;
    interval.integer = 1;
}

Rig::Rig(bool playback, std::uint32_t speed, bool resume)
    : bench(speed), clock(bench), space(usualLimits(resume)) {
    notes.hears = !playback;
    stream = std::make_unique<board::PcmStream>(
        board::PcmStream::Parts{bench, clock, notes, figures, space,
                                [this](std::uint32_t now) { bits = now; }},
        playback);
}

void Rig::prepare(std::uint32_t periods) {
    buffer = periods * period;
    snd_pcm_hw_params params = anyParameters();
    params.masks[SNDRV_PCM_HW_PARAM_ACCESS] = {};
    params.masks[SNDRV_PCM_HW_PARAM_ACCESS].bits[0] = 1U << SNDRV_PCM_ACCESS_RW_INTERLEAVED;
    set(params, SNDRV_PCM_HW_PARAM_PERIOD_SIZE, period);
    set(params, SNDRV_PCM_HW_PARAM_BUFFER_SIZE, buffer);
    if (stream->setHardware(params) != 0 || stream->prepare() != 0)
        std::abort();
}

bool Rig::readable(short events) const {
    pollfd one = {stream->clientDescriptor(), events, 0};
    return ::poll(&one, 1, 0) == 1 && (one.revents & events) != 0;
}

}  // namespace soundbench
