// Everything live: the board's views and what is made of them.
#pragma once

#include "board/console/agestatistics.h"
#include "board/console/camerapictures.h"
#include "board/console/picturechannel.h"
#include "board/console/screenpictures.h"
#include "board/console/soundchannel.h"
#include "board/console/soundmeter.h"
#include "board/console/viewfollower.h"

#include <functional>
#include <string>

namespace board::console {

// A thread for each view; pictures and sound are fetched only while somebody wants them.
class LiveViews {
  public:
    // `folder`: the board's run folder. `hasReaders`: whether somebody looks at the levels; any
    // thread.
    LiveViews(const std::string& folder, const std::function<bool()>& hasReaders);
    LiveViews(const LiveViews&) = delete;
    LiveViews& operator=(const LiveViews&) = delete;

    PictureChannel& screen() { return screen_; }
    PictureChannel& camera() { return camera_; }
    SoundChannel& sound(wire::ViewCard card) { return cards_[std::size_t(card)].channel; }
    AgeStatistics& age() { return age_; }
    // "\"microphone\": {...}, \"output\": {...}": see SoundMeter.
    std::string soundLevels();

  private:
    struct Card {
        SoundChannel channel;
        SoundMeter meter;
    };

    ViewWish screenWish(const std::string& folder);
    ViewWish cameraWish(const std::string& folder);
    ViewWish soundWish(const std::string& folder, const std::function<bool()>& hasReaders);
    ViewWish flipsWish(const std::string& folder);
    void takeSound(const ViewPacket& packet);

    PictureChannel screen_, camera_;
    Card cards_[2];
    AgeStatistics age_;
    ScreenPictures screenPictures_;
    CameraPictures cameraPictures_;
    ViewFollower screenFollower_, cameraFollower_, soundFollower_, flipsFollower_;
};

}  // namespace board::console
