#include "board/daemon/soundcard.h"

#include "board/daemon/pluggings.h"
#include "board/daemon/sound/pluggedcard.h"
#include "board/daemon/sound/soundends.h"
#include "board/daemon/stream0.h"

#include <utility>

namespace board {

namespace {

constexpr const char* stateNames[] = {"OPEN",     "SETUP",  "PREPARED",  "RUNNING",     "XRUN",
                                      "DRAINING", "PAUSED", "SUSPENDED", "DISCONNECTED"};

}  // namespace

class SoundCard::Impl : public Pluggings<PluggedCard> {
  public:
    Impl(Board& board, SoundDescription given, unsigned cardNumber, std::int32_t clockError_ppm)
        : state(std::make_shared<CardState>(board, clockError_ppm)),
          description(std::move(given)),
          number(cardNumber) {}

    ~Impl() { unplug(); }

    std::shared_ptr<CardState> state;
    SoundDescription description;
    unsigned number;
};

SoundCard::SoundCard(Board& board, const SoundDescription& description, unsigned number,
                     std::int32_t clockError_ppm)
    : impl_(std::make_unique<Impl>(board, description, number, clockError_ppm)) {}

SoundCard::~SoundCard() = default;

void SoundCard::plug() {
    if (plugged())
        return;
    const unsigned number = impl_->freeNumber(impl_->number);
    impl_->state->asleep = false;
    impl_->current = std::make_shared<PluggedCard>(impl_->state, impl_->description, number);
    impl_->current->plug();
}

void SoundCard::unplug() {
    impl_->unplug();
    impl_->forgetClosed();
}

bool SoundCard::plugged() const {
    return impl_->current != nullptr;
}

unsigned SoundCard::number() const {
    return plugged() ? impl_->current->number() : impl_->number;
}

const SoundDescription& SoundCard::description() const {
    return impl_->description;
}

void SoundCard::replaceDescription(const SoundDescription& description) {
    impl_->description = description;
}

void SoundCard::stall(bool stalled) {
    const auto change = [stalled](CardClock& clock) { clock.setStopped(stalled); };
    if (plugged())
        impl_->current->setClock(change);
    else
        change(impl_->state->clock);
}

void SoundCard::setClockError(std::int32_t ppm) {
    const auto change = [ppm](CardClock& clock) { clock.setError(ppm); };
    if (plugged())
        impl_->current->setClock(change);
    else
        change(impl_->state->clock);
}

void SoundCard::breakOff() {
    if (plugged())
        impl_->current->breakOff();
}

void SoundCard::suspend() {
    if (plugged())
        impl_->current->suspend();
}

void SoundCard::wake(bool goOn) {
    if (plugged())
        impl_->current->wake(goOn);
}

void SoundCard::grant(std::uint32_t rate_Hz, std::uint32_t periodFrames) {
    impl_->state->grant = {rate_Hz, periodFrames};
}

void SoundCard::failOpenings(int error, unsigned count) {
    impl_->state->openError = error;
    impl_->state->openFailures = count;
    impl_->state->openAlwaysFails = count == 0;
}

void SoundCard::clearFailures() {
    failOpenings(0, 0);
    impl_->state->openAlwaysFails = false;
}

void SoundCard::hear(const std::string& source, const Finished& done) {
    impl_->state->voice.hear(source, done);
}

std::string SoundCard::startRecording(const std::string& path) {
    return impl_->state->ear.recorder().start(path);
}

void SoundCard::stopRecording(const Recorded& done) {
    impl_->state->ear.recorder().stop([done](const SoundRecorder::Result& result) {
        done(result.error, result.path, result.frames);
    });
}

void SoundCard::setWatcher(Watcher* watcher, wire::ViewCard card) {
    SoundTap& tap =
        card == wire::ViewCard::microphone ? impl_->state->voice.tap() : impl_->state->ear.tap();
    tap.setWatcher(watcher, card);
}

SoundFigures SoundCard::figures(bool playback) const {
    if (plugged())
        impl_->current->catchUp();
    const StreamFigures& counted = playback ? impl_->state->played : impl_->state->recorded;
    SoundFigures figures;
    figures.frames = counted.frames;
    figures.periods = counted.periods;
    figures.starts = counted.starts;
    figures.xruns = counted.xruns;
    figures.missing = counted.missing;
    const PcmStream* stream = plugged() ? impl_->current->stream(playback) : nullptr;
    if (stream == nullptr)
        return figures;
    figures.open = true;
    figures.state = stateNames[stream->state()];
    const SoundFormat& format = stream->format();
    if (format.rate_Hz == 0)
        return figures;
    figures.format = soundFormatName(format.format);
    figures.rate_Hz = format.rate_Hz;
    figures.channels = format.channels;
    figures.periodFrames = format.periodFrames;
    figures.bufferFrames = format.bufferFrames;
    figures.queuedFrames = stream->queued();
    return figures;
}

unsigned SoundCard::openHandles() const {
    return impl_->openHandles();
}

}  // namespace board
