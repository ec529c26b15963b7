#include "board/console/liveviews.h"

#include "board/console/soundsamples.h"

#include <memory>
#include <utility>

namespace board::console {

namespace {

constexpr std::chrono::microseconds screenPeriod(33333), cameraPeriod(66667);

void publish(PictureChannel& channel, std::string part) {
    if (!part.empty())
        channel.publish(std::make_shared<const std::string>(std::move(part)));
}

}  // namespace

LiveViews::LiveViews(const std::string& folder, const std::function<bool()>& hasReaders)
    : screenFollower_(screenWish(folder)),
      cameraFollower_(cameraWish(folder)),
      soundFollower_(soundWish(folder, hasReaders)),
      flipsFollower_(flipsWish(folder)) {}

ViewWish LiveViews::screenWish(const std::string& folder) {
    ViewWish wish;
    wish.folder = folder;
    wish.kind = wire::ViewKind::screen;
    wish.period = screenPeriod;
    wish.wanted = [this] { return screen_.hasViewers(); };
    wish.take = [this](const ViewPacket& packet) {
        publish(screen_, screenPictures_.part(packet));
    };
    wish.ended = [this] {
        screenPictures_.forget();
        screen_.forget();
    };
    return wish;
}

ViewWish LiveViews::cameraWish(const std::string& folder) {
    ViewWish wish;
    wish.folder = folder;
    wish.kind = wire::ViewKind::camera;
    wish.period = cameraPeriod;
    wish.wanted = [this] { return camera_.hasViewers(); };
    wish.take = [this](const ViewPacket& packet) {
        publish(camera_, cameraPictures_.part(packet, std::chrono::steady_clock::now()));
    };
    wish.ended = [this] {
        cameraPictures_.forget();
        camera_.forget();
    };
    wish.wholeStream = [this] { return cameraPictures_.needsEveryPayload(); };
    return wish;
}

ViewWish LiveViews::soundWish(const std::string& folder, const std::function<bool()>& hasReaders) {
    ViewWish wish;
    wish.folder = folder;
    wish.kind = wire::ViewKind::sound;
    wish.wanted = [this, hasReaders] {
        return hasReaders() || cards_[0].channel.hasListeners() || cards_[1].channel.hasListeners();
    };
    wish.take = [this](const ViewPacket& packet) { takeSound(packet); };
    wish.ended = [] {};
    return wish;
}

ViewWish LiveViews::flipsWish(const std::string& folder) {
    ViewWish wish;
    wish.folder = folder;
    wish.kind = wire::ViewKind::flips;
    wish.wanted = [] { return true; };  // the last minute is there for those who come
    wish.take = [this](const ViewPacket& packet) {
        wire::ViewFlip flip{};
        if (packet.read(flip))
            age_.take(flip, AgeStatistics::Clock::now());
    };
    wish.ended = [] {};
    return wish;
}

void LiveViews::takeSound(const ViewPacket& packet) {
    wire::ViewSound sound{};
    if (!packet.read(sound) || std::size_t(sound.card) >= std::size(cards_))
        return;
    std::vector<std::int16_t> stereo =
        toStereo(sound.format, sound.channels, packet.bytes.data() + sizeof sound,
                 packet.bytes.size() - sizeof sound, sound.frames);
    if (stereo.empty())
        return;
    Card& card = cards_[std::size_t(sound.card)];
    card.meter.take(stereo, SoundMeter::Clock::now());
    card.channel.publish(sound.rate_Hz, std::move(stereo));
}

std::string LiveViews::soundLevels() {
    const SoundMeter::Clock::time_point now = SoundMeter::Clock::now();
    return "\"microphone\": " + cards_[0].meter.json(now) +
           ", \"output\": " + cards_[1].meter.json(now);
}

}  // namespace board::console
