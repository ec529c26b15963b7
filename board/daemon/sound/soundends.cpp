#include "board/daemon/sound/soundends.h"

#include "board/media/decodedsound.h"

#include <exception>
#include <utility>

namespace board {

namespace {

constexpr unsigned longestClip_s = 120;
constexpr std::uint32_t usualRate_Hz = 48000;

}  // namespace

void Voice::hear(const std::string& name, const std::function<void(const std::string&)>& done) {
    if (auto generator = makeGenerator(name)) {
        generator_ = std::move(generator);
        done("");
        return;
    }
    // The file takes its place once it is known to have sound.
    const std::uint32_t rate = format_.rate_Hz != 0 ? format_.rate_Hz : usualRate_Hz;
    load(name, rate, [this, done](const std::string& error) {
        if (error.empty())
            generator_.reset();
        done(error);
    });
}

void Voice::load(const std::string& path, std::uint32_t rate_Hz, const Loaded& done) {
    worker_.run(
        [this, path, rate_Hz, done, living = std::weak_ptr<bool>(living_), &loop = board_.loop()] {
            std::shared_ptr<const SoundSource> clip;
            std::string error;
            try {
                DecodedSound sound = decodeSound(path, rate_Hz, longestClip_s);
                clip = std::make_shared<ClipSource>(std::move(sound.samples), sound.channels);
            } catch (const std::exception& failure) {
                error = failure.what();
            }
            loop.post([this, path, rate_Hz, done, living, clip, error] {
                if (!living.lock())
                    return;
                if (clip != nullptr) {
                    path_ = path;
                    clip_ = clip;
                    clipRate_Hz_ = rate_Hz;
                }
                done(error);
            });
        });
}

// A file that is at hand for another rate only is read again; until then there is silence.
void Voice::prepare(const SoundFormat& format) {
    format_ = format;
    if (generator_ != nullptr || format.rate_Hz == clipRate_Hz_)
        return;
    load(path_, format.rate_Hz, [this](const std::string& error) {
        if (!error.empty())
            board_.log("microphone: " + error);
        else if (generator_ == nullptr && source_ == nullptr && format_.rate_Hz == clipRate_Hz_) {
            source_ = clip_;
            frame_ = 0;
        }
    });
}

void Voice::begin(const SoundFormat& format) {
    format_ = format;
    frame_ = 0;
    source_ = generator_;
    if (source_ == nullptr && clipRate_Hz_ == format.rate_Hz)
        source_ = clip_;
}

void Voice::move(std::uint8_t* frames, std::uint32_t count) {
    const std::uint8_t* const begin = frames;
    const std::uint32_t bytes = format_.sampleBits / 8;
    for (std::uint32_t i = 0; i < count; ++i, ++frame_)
        for (std::uint32_t channel = 0; channel < format_.channels; ++channel, frames += bytes)
            packSample(source_ ? source_->sample(frame_, channel, format_.rate_Hz) : 0,
                       format_.format, frames);
    tap_.moved(format_, begin, count);
}

}  // namespace board
