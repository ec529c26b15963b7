// The ioctls of a PCM node, one by one.
#include "board/daemon/sound/pcmhandle.h"
#include "board/daemon/sound/pluggedcard.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <cerrno>

namespace board {

namespace {

// Older than the version from which clients announce their own.
constexpr std::int32_t protocol = SNDRV_PROTOCOL_VERSION(2, 0, 13);

}  // namespace

template <typename T, int (PcmHandle::*step)(T&)>
int PcmHandle::with(IoctlCall& call) {
    T argument = call.load<T>();
    const int result = (this->*step)(argument);
    call.store(argument);
    return result;
}

template <int (PcmStream::*step)()>
int PcmHandle::on(IoctlCall& /*call*/) {
    return (stream_.*step)();
}

const std::map<std::uint32_t, PcmHandle::Step>& PcmHandle::table() {
    using H = PcmHandle;
    using S = PcmStream;
    // clang-format off
    static const std::map<std::uint32_t, Step> entries = {
        {SNDRV_PCM_IOCTL_PVERSION, &H::with<std::int32_t, &H::version>},
        {SNDRV_PCM_IOCTL_INFO, &H::with<snd_pcm_info, &H::information>},
        {SNDRV_PCM_IOCTL_TTSTAMP, &H::with<std::int32_t, &H::timestamps>},
        {SNDRV_PCM_IOCTL_HW_REFINE, &H::with<snd_pcm_hw_params, &H::refine>},
        {SNDRV_PCM_IOCTL_HW_PARAMS, &H::with<snd_pcm_hw_params, &H::setHardware>},
        {SNDRV_PCM_IOCTL_HW_FREE, &H::on<&S::freeHardware>},
        {SNDRV_PCM_IOCTL_SW_PARAMS, &H::with<snd_pcm_sw_params, &H::setSoftware>},
        {SNDRV_PCM_IOCTL_STATUS, &H::with<snd_pcm_status, &H::status>},
        {SNDRV_PCM_IOCTL_STATUS_EXT, &H::with<snd_pcm_status, &H::status>},
        {SNDRV_PCM_IOCTL_DELAY, &H::with<snd_pcm_sframes_t, &H::delay>},
        {SNDRV_PCM_IOCTL_HWSYNC, &H::on<&S::synchronise>},
        {SNDRV_PCM_IOCTL_SYNC_PTR, &H::with<snd_pcm_sync_ptr, &H::pointers>},
        {SNDRV_PCM_IOCTL_CHANNEL_INFO, &H::with<snd_pcm_channel_info, &H::channel>},
        {SNDRV_PCM_IOCTL_PREPARE, &H::on<&S::prepare>},
        {SNDRV_PCM_IOCTL_RESET, &H::on<&S::reset>},
        {SNDRV_PCM_IOCTL_START, &H::on<&S::start>},
        {SNDRV_PCM_IOCTL_DROP, &H::on<&S::drop>},
        {SNDRV_PCM_IOCTL_DRAIN, &H::on<&S::drain>},
        {SNDRV_PCM_IOCTL_PAUSE, &H::with<std::int32_t, &H::pause>},
        {SNDRV_PCM_IOCTL_REWIND, &H::with<snd_pcm_uframes_t, &H::rewind>},
        {SNDRV_PCM_IOCTL_FORWARD, &H::with<snd_pcm_uframes_t, &H::forward>},
        {SNDRV_PCM_IOCTL_RESUME, &H::on<&S::resume>},
        {SNDRV_PCM_IOCTL_XRUN, &H::on<&S::overrun>},
        {SNDRV_PCM_IOCTL_READI_FRAMES, &H::read},
        {SNDRV_PCM_IOCTL_WRITEI_FRAMES, &H::write},
        {SNDRV_PCM_IOCTL_READN_FRAMES, &H::separately},
        {SNDRV_PCM_IOCTL_WRITEN_FRAMES, &H::separately},
    };
    // clang-format on
    return entries;
}

int PcmHandle::version(std::int32_t& version) {
    version = protocol;
    return 0;
}

int PcmHandle::information(snd_pcm_info& info) {
    card_->information(stream_.playback(), info);
    return 0;
}

int PcmHandle::timestamps(std::int32_t& type) {
    return stream_.setTimestamps(type);
}

int PcmHandle::refine(snd_pcm_hw_params& params) {
    return space_.refine(params);
}

int PcmHandle::setHardware(snd_pcm_hw_params& params) {
    return stream_.setHardware(params);
}

int PcmHandle::setSoftware(snd_pcm_sw_params& params) {
    return stream_.setSoftware(params);
}

int PcmHandle::status(snd_pcm_status& status) {
    stream_.status(status);
    return 0;
}

int PcmHandle::delay(snd_pcm_sframes_t& frames) {
    return stream_.delay(frames);
}

int PcmHandle::pointers(snd_pcm_sync_ptr& pointers) {
    return stream_.pointers(pointers);
}

int PcmHandle::channel(snd_pcm_channel_info& info) {
    return stream_.channel(info);
}

int PcmHandle::pause(std::int32_t& on) {
    return stream_.pause(on != 0);
}

int PcmHandle::rewind(snd_pcm_uframes_t& frames) {
    return int(stream_.rewind(frames));
}

int PcmHandle::forward(snd_pcm_uframes_t& frames) {
    return int(stream_.forward(frames));
}

// The client asks for as many frames as a message can hold; the result is how many were moved.
int PcmHandle::read(IoctlCall& call) {
    if (stream_.playback())
        return -EINVAL;
    NestedBlock& block = call.blocks[0];
    const std::uint32_t frameBytes = stream_.format().frameBytes();
    const std::uint64_t asked = call.load<snd_xferi>().frames;
    const std::uint64_t room = frameBytes != 0 ? block.capacity / frameBytes : 0;
    if (room == 0 && asked != 0 && stream_.state() != SNDRV_PCM_STATE_OPEN)
        return -EFAULT;
    const std::uint64_t frames = asked < room ? asked : room;
    block.reply.resize(frames * frameBytes);
    const std::int64_t moved = stream_.transfer(reinterpret_cast<std::uint8_t*>(block.reply.data()),
                                                frames, (call.fileFlags & O_NONBLOCK) == 0);
    block.reply.resize(moved > 0 ? std::size_t(moved) * frameBytes : 0);
    return int(moved);
}

int PcmHandle::write(IoctlCall& call) {
    if (!stream_.playback())
        return -EINVAL;
    NestedBlock& block = call.blocks[0];
    const std::uint32_t frameBytes = stream_.format().frameBytes();
    const std::uint64_t asked = call.load<snd_xferi>().frames;
    const std::uint64_t sent = frameBytes != 0 ? block.sent.size() / frameBytes : 0;
    if (sent == 0 && asked != 0 && stream_.state() != SNDRV_PCM_STATE_OPEN)
        return -EFAULT;
    return int(stream_.transfer(reinterpret_cast<std::uint8_t*>(block.sent.data()),
                                asked < sent ? asked : sent, (call.fileFlags & O_NONBLOCK) == 0));
}

int PcmHandle::separately(IoctlCall& /*call*/) {
    return stream_.state() == SNDRV_PCM_STATE_OPEN ? -EBADFD : -EINVAL;
}

}  // namespace board
