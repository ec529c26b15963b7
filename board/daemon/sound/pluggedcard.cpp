#include "board/daemon/sound/pluggedcard.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace board {

namespace {

constexpr unsigned soundMajor = 116;
constexpr unsigned minorsOfCard = 32;
constexpr unsigned firstPlayback = 16, firstCapture = 24;

template <std::size_t Size>
void put(unsigned char (&field)[Size], const std::string& text) {
    std::memset(field, 0, Size);
    std::memcpy(field, text.data(), std::min(text.size(), Size - 1));
}

}  // namespace

PluggedCard::PluggedCard(std::shared_ptr<CardState> state, const SoundDescription& description,
                         unsigned number)
    : state_(std::move(state)), description_(description), number_(number) {}

std::string PluggedCard::path(char direction) const {
    const std::string card = std::to_string(number_);
    if (direction == ' ')
        return "/dev/snd/controlC" + card;
    return "/dev/snd/pcmC" + card + "D0" + direction;
}

void PluggedCard::plug() {
    const unsigned minor = number_ * minorsOfCard;
    Board& board = state_->board;
    if (hasStream(true))
        board.addNode(path('p'), soundMajor, minor + firstPlayback, playback_);
    if (hasStream(false))
        board.addNode(path('c'), soundMajor, minor + firstCapture, capture_);
    board.addNode(path(' '), soundMajor, minor, control_);
}

void PluggedCard::unplug() {
    if (gone_)
        return;
    gone_ = true;
    for (const char direction : {' ', 'p', 'c'})
        state_->board.removeNode(path(direction));
    for (PcmHandle* handle : streams_)
        handle->stream().disconnect();
    for (CardControl* handle : controls_) {
        tell(handle->slot, wire::handleGone);
        handle->hangUp();
    }
}

void PluggedCard::suspend() {
    state_->asleep = true;
    for (PcmHandle* handle : streams_) {
        handle->stream().asleep = true;
        handle->stream().suspend();
    }
}

void PluggedCard::wake(bool goOn) {
    state_->asleep = false;
    for (PcmHandle* handle : streams_) {
        handle->stream().asleep = false;
        if (goOn)
            handle->stream().wake();
    }
}

void PluggedCard::breakOff() {
    for (PcmHandle* handle : streams_)
        handle->stream().breakOff();
}

void PluggedCard::catchUp() {
    for (PcmHandle* handle : streams_)
        handle->stream().catchUp();
}

void PluggedCard::setClock(const std::function<void(CardClock&)>& change) {
    for (PcmHandle* handle : streams_)
        handle->stream().clockChanging();
    change(state_->clock);
    for (PcmHandle* handle : streams_)
        handle->stream().clockChanged();
}

const PcmStream* PluggedCard::stream(bool playback) const {
    for (const PcmHandle* handle : streams_)
        if (handle->stream().playback() == playback)
            return &handle->stream();
    return nullptr;
}

SoundLimits PluggedCard::limits(bool playback) const {
    SoundLimits limits = limitsOf(playback);
    if (state_->grant.rate_Hz != 0)
        for (SoundSetting& setting : limits.settings)
            setting.rates_Hz = {state_->grant.rate_Hz};
    if (state_->grant.periodFrames != 0)
        limits.periodFrames = state_->grant.periodFrames;
    return limits;
}

PcmStream::Parts PluggedCard::parts(bool playback, const HardwareSpace& space,
                                    std::function<void(std::uint32_t)> stateChanged) {
    return {state_->board,
            state_->clock,
            playback ? static_cast<SoundEnd&>(state_->ear) : state_->voice,
            playback ? state_->played : state_->recorded,
            space,
            std::move(stateChanged)};
}

void PluggedCard::information(bool playback, snd_pcm_info& info) const {
    info = {};
    info.card = int(number_);
    info.stream = playback ? SNDRV_PCM_STREAM_PLAYBACK : SNDRV_PCM_STREAM_CAPTURE;
    const bool usb = !description_.stream0.empty();
    put(info.id, usb ? "USB Audio" : description_.card);
    put(info.name, usb ? "USB Audio" : description_.card);
    put(info.subname, "subdevice #0");
    info.subdevices_count = 1;
    info.subdevices_avail = stream(playback) == nullptr ? 1 : 0;
}

snd_ctl_card_info PluggedCard::cardInformation() const {
    snd_ctl_card_info info{};
    info.card = int(number_);
    put(info.id, description_.id);
    put(info.driver, description_.driver);
    put(info.name, description_.card);
    put(info.longname, description_.longName);
    put(info.mixername, description_.card);
    return info;
}

void PluggedCard::closed(PcmHandle& handle) {
    streams_.erase(std::remove(streams_.begin(), streams_.end(), &handle), streams_.end());
}

void PluggedCard::closed(CardControl& handle) {
    controls_.erase(std::remove(controls_.begin(), controls_.end(), &handle), controls_.end());
}

std::unique_ptr<Handle> PluggedCard::openStream(bool playback, int* error) {
    *error = 0;
    if (gone_)
        *error = ENODEV;
    else if (state_->openAlwaysFails || state_->openFailures > 0)
        *error = state_->openError;
    else if (stream(playback) != nullptr)
        *error = EBUSY;
    if (*error == state_->openError && state_->openFailures > 0)
        --state_->openFailures;
    if (*error != 0)
        return nullptr;
    auto handle = std::make_unique<PcmHandle>(shared_from_this(), playback);
    streams_.push_back(handle.get());
    return handle;
}

std::unique_ptr<Handle> PluggedCard::openControl(int* error) {
    if (gone_) {
        *error = ENODEV;
        return nullptr;
    }
    auto handle = std::make_unique<CardControl>(shared_from_this());
    controls_.push_back(handle.get());
    return handle;
}

std::unique_ptr<Handle> PluggedCard::PcmNode::open(std::uint32_t /*fileFlags*/,
                                                   std::uint32_t /*pid*/, int* error) {
    try {
        return card_.openStream(playback_, error);
    } catch (const std::system_error& failure) {
        *error = failure.code().value();
        return nullptr;
    }
}

std::unique_ptr<Handle> PluggedCard::ControlNode::open(std::uint32_t /*fileFlags*/,
                                                       std::uint32_t /*pid*/, int* error) {
    try {
        return card_.openControl(error);
    } catch (const std::system_error& failure) {
        *error = failure.code().value();
        return nullptr;
    }
}

}  // namespace board
