#include "board/daemon/sound/cardcontrol.h"

#include "board/daemon/sound/pluggedcard.h"

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace board {

namespace {

constexpr std::int32_t protocol = SNDRV_PROTOCOL_VERSION(2, 0, 8);
constexpr std::int32_t noDevice = -1;

}  // namespace

CardControl::CardControl(std::shared_ptr<PluggedCard> card) : card_(std::move(card)) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    client_ = ends[0];
    peer_ = ends[1];
}

CardControl::~CardControl() {
    card_->closed(*this);
    hangUp();
    ::close(client_);
}

void CardControl::hangUp() {
    if (peer_ >= 0)
        ::close(peer_);
    peer_ = -1;
}

bool CardControl::knows(std::uint32_t request) const {
    switch (request) {
        case SNDRV_CTL_IOCTL_PVERSION:
        case SNDRV_CTL_IOCTL_CARD_INFO:
        case SNDRV_CTL_IOCTL_ELEM_LIST:
        case SNDRV_CTL_IOCTL_ELEM_INFO:
        case SNDRV_CTL_IOCTL_ELEM_READ:
        case SNDRV_CTL_IOCTL_ELEM_WRITE:
        case SNDRV_CTL_IOCTL_SUBSCRIBE_EVENTS:
        case SNDRV_CTL_IOCTL_HWDEP_NEXT_DEVICE:
        case SNDRV_CTL_IOCTL_RAWMIDI_NEXT_DEVICE:
        case SNDRV_CTL_IOCTL_PCM_NEXT_DEVICE:
        case SNDRV_CTL_IOCTL_PCM_INFO:
        case SNDRV_CTL_IOCTL_PCM_PREFER_SUBDEVICE:
        case SNDRV_CTL_IOCTL_POWER_STATE:
            return true;
        default:
            return false;
    }
}

int CardControl::unknownIoctlError() const {
    return card_->gone() ? ENODEV : ENOTTY;
}

// The card's one PCM device has number 0.
int CardControl::nextDevice(IoctlCall& call) const {
    const bool first = call.load<std::int32_t>() < 0;
    call.store(first && card_->hasStreams() ? std::int32_t(0) : noDevice);
    return 0;
}

int CardControl::pcmInformation(IoctlCall& call) const {
    auto info = call.load<snd_pcm_info>();
    const bool playback = info.stream == SNDRV_PCM_STREAM_PLAYBACK;
    if (info.device != 0 || info.subdevice != 0 || info.stream < 0 ||
        info.stream > SNDRV_PCM_STREAM_LAST)
        return -ENXIO;
    if (!card_->hasStream(playback))
        return -ENOENT;
    card_->information(playback, info);
    call.store(info);
    return 0;
}

int CardControl::ioctl(IoctlCall& call) {
    if (card_->gone())
        return -ENODEV;
    switch (call.request) {
        case SNDRV_CTL_IOCTL_PVERSION:
            call.store(protocol);
            return 0;
        case SNDRV_CTL_IOCTL_CARD_INFO:
            call.store(card_->cardInformation());
            return 0;
        case SNDRV_CTL_IOCTL_ELEM_LIST: {
            auto list = call.load<snd_ctl_elem_list>();
            list.used = list.count = 0;
            call.store(list);
            return 0;
        }
        case SNDRV_CTL_IOCTL_ELEM_INFO:
        case SNDRV_CTL_IOCTL_ELEM_READ:
        case SNDRV_CTL_IOCTL_ELEM_WRITE:
            return -ENOENT;
        case SNDRV_CTL_IOCTL_HWDEP_NEXT_DEVICE:
        case SNDRV_CTL_IOCTL_RAWMIDI_NEXT_DEVICE:
            call.store(noDevice);
            return 0;
        case SNDRV_CTL_IOCTL_PCM_NEXT_DEVICE:
            return nextDevice(call);
        case SNDRV_CTL_IOCTL_PCM_INFO:
            return pcmInformation(call);
        case SNDRV_CTL_IOCTL_POWER_STATE:
            call.store(std::int32_t(card_->asleep() ? SNDRV_CTL_POWER_D3 : SNDRV_CTL_POWER_D0));
            return 0;
        case SNDRV_CTL_IOCTL_SUBSCRIBE_EVENTS:
        case SNDRV_CTL_IOCTL_PCM_PREFER_SUBDEVICE:
            return 0;
        default:
            return -ENOTTY;
    }
}

Mapping CardControl::map(std::uint64_t /*offset*/, std::uint64_t /*length*/,
                         std::uint32_t /*protection*/) {
    Mapping mapping;
    mapping.error = -ENODEV;
    return mapping;
}

}  // namespace board
