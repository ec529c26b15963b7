#include "board/daemon/display/cardhandle.h"

#include <drm.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

namespace board {

CardHandle::CardHandle(Board& board, Card& card, std::shared_ptr<EventSink> events,
                       std::uint32_t pid)
    : board_(board), card_(card), events_(std::move(events)), pid_(pid) {}

CardHandle::~CardHandle() {
    for (const std::uint32_t framebufferId : framebuffers_)
        card_.removeFramebuffer(framebufferId);
    card_.closed(*this);
}

const std::map<std::uint32_t, CardHandle::Entry>& CardHandle::entries() {
    using Self = CardHandle;
    const auto free = [](auto answer) { return Entry{answer, 0, false}; };
    const auto master = [](auto answer) { return Entry{answer, 0, true}; };
    const auto absent = [](int error) { return Entry{nullptr, error, false}; };
    const auto masterAbsent = [](int error) { return Entry{nullptr, error, true}; };
    static const std::map<std::uint32_t, Entry> table = {
        {DRM_IOCTL_VERSION, free(&Self::version)},
        {DRM_IOCTL_GET_UNIQUE, free(&Self::getUnique)},
        {DRM_IOCTL_SET_VERSION, master(&Self::setVersion)},
        {DRM_IOCTL_GET_CLIENT, free(&Self::getClient)},
        {DRM_IOCTL_GET_MAGIC, free(&Self::getMagic)},
        {DRM_IOCTL_AUTH_MAGIC, master(&Self::authMagic)},
        {DRM_IOCTL_SET_MASTER, free(&Self::setMaster)},
        {DRM_IOCTL_DROP_MASTER, free(&Self::dropMaster)},
        {DRM_IOCTL_GET_CAP, free(&Self::getCapability)},
        {DRM_IOCTL_SET_CLIENT_CAP, free(&Self::setClientCapability)},
        {DRM_IOCTL_MODE_GETRESOURCES, free(&Self::getResources)},
        {DRM_IOCTL_MODE_GETCRTC, free(&Self::getCrtc)},
        {DRM_IOCTL_MODE_GETENCODER, free(&Self::getEncoder)},
        {DRM_IOCTL_MODE_GETCONNECTOR, free(&Self::getConnector)},
        {DRM_IOCTL_MODE_GETPLANERESOURCES, free(&Self::getPlaneResources)},
        {DRM_IOCTL_MODE_GETPLANE, free(&Self::getPlane)},
        {DRM_IOCTL_MODE_OBJ_GETPROPERTIES, free(&Self::objectGetProperties)},
        {DRM_IOCTL_MODE_GETPROPERTY, free(&Self::getProperty)},
        {DRM_IOCTL_MODE_GETPROPBLOB, free(&Self::getPropertyBlob)},
        {DRM_IOCTL_MODE_SETPROPERTY, master(&Self::setProperty)},
        {DRM_IOCTL_MODE_OBJ_SETPROPERTY, master(&Self::objectSetProperty)},
        {DRM_IOCTL_MODE_CREATE_DUMB, free(&Self::createDumb)},
        {DRM_IOCTL_MODE_MAP_DUMB, free(&Self::mapDumb)},
        {DRM_IOCTL_MODE_DESTROY_DUMB, free(&Self::destroyDumb)},
        {DRM_IOCTL_GEM_CLOSE, free(&Self::gemClose)},
        {DRM_IOCTL_MODE_ADDFB, free(&Self::addFramebuffer)},
        {DRM_IOCTL_MODE_ADDFB2, free(&Self::addFramebuffer2)},
        {DRM_IOCTL_MODE_GETFB, free(&Self::getFramebuffer)},
        {DRM_IOCTL_MODE_RMFB, free(&Self::removeFramebuffer)},
        {DRM_IOCTL_MODE_SETCRTC, master(&Self::setCrtc)},
        {DRM_IOCTL_MODE_PAGE_FLIP, master(&Self::pageFlip)},
        {DRM_IOCTL_WAIT_VBLANK, free(&Self::waitVblank)},
        {DRM_IOCTL_MODE_ATOMIC, masterAbsent(EOPNOTSUPP)},
        {DRM_IOCTL_MODE_SETPLANE, masterAbsent(EOPNOTSUPP)},
        {DRM_IOCTL_MODE_DIRTYFB, masterAbsent(ENOSYS)},
        {DRM_IOCTL_MODE_GETGAMMA, absent(ENOSYS)},
        {DRM_IOCTL_MODE_SETGAMMA, masterAbsent(ENOSYS)},
        {DRM_IOCTL_MODE_CURSOR, masterAbsent(ENXIO)},
        {DRM_IOCTL_MODE_CURSOR2, masterAbsent(ENXIO)},
        {DRM_IOCTL_PRIME_HANDLE_TO_FD, absent(ENOSYS)},
        {DRM_IOCTL_PRIME_FD_TO_HANDLE, absent(ENOSYS)},
        {DRM_IOCTL_GEM_FLINK, absent(EOPNOTSUPP)},
        {DRM_IOCTL_GEM_OPEN, absent(EOPNOTSUPP)},
        {DRM_IOCTL_MODE_CREATEPROPBLOB, absent(EOPNOTSUPP)},
        {DRM_IOCTL_MODE_DESTROYPROPBLOB, absent(EOPNOTSUPP)},
        {DRM_IOCTL_SYNCOBJ_CREATE, absent(EOPNOTSUPP)},
        {DRM_IOCTL_SYNCOBJ_DESTROY, absent(EOPNOTSUPP)},
        {DRM_IOCTL_CRTC_GET_SEQUENCE, absent(EOPNOTSUPP)},
        {DRM_IOCTL_CRTC_QUEUE_SEQUENCE, absent(EOPNOTSUPP)},
        {DRM_IOCTL_MODE_CREATE_LEASE, masterAbsent(EOPNOTSUPP)},
    };
    return table;
}

bool CardHandle::knows(std::uint32_t request) const {
    return entries().count(request) != 0;
}

int CardHandle::unknownIoctlError() const {
    return EINVAL;
}

int CardHandle::ioctl(IoctlCall& call) {
    const auto entry = entries().find(call.request);
    if (entry == entries().end())
        return -EINVAL;
    if (entry->second.masterOnly && !card_.isMaster(*this))
        return -EACCES;
    if (entry->second.answer == nullptr)
        return -entry->second.error;
    return (this->*entry->second.answer)(call);
}

bool CardHandle::replyOnError(std::uint32_t request) const {
    // An interrupted wait hands back what it waits for, so that asking again does not wait longer.
    return request == std::uint32_t(DRM_IOCTL_WAIT_VBLANK);
}

int CardHandle::version(IoctlCall& call) {
    auto info = call.load<drm_version>();
    info.version_major = 1;
    info.version_minor = 0;
    info.version_patchlevel = 0;
    const std::string texts[] = {"rockchip", "20140818", "RockChip Soc DRM"};
    info.name_len = texts[0].size();
    info.date_len = texts[1].size();
    info.desc_len = texts[2].size();
    for (std::size_t i = 0; i < 3 && i < call.blocks.size(); ++i) {
        // These, unlike lists, are given as far as there is room.
        NestedBlock& block = call.blocks[i];
        const std::size_t length = std::min<std::size_t>(block.capacity, texts[i].size());
        const auto* text = reinterpret_cast<const std::byte*>(texts[i].data());
        block.reply.assign(text, text + length);
    }
    call.store(info);
    return 0;
}

int CardHandle::getUnique(IoctlCall& call) {
    auto unique = call.load<drm_unique>();
    unique.unique_len = 0;
    call.store(unique);
    return 0;
}

int CardHandle::setVersion(IoctlCall& call) {
    auto wanted = call.load<drm_set_version>();
    const bool interfaceFits =
        wanted.drm_di_major == -1 ||
        (wanted.drm_di_major == 1 && wanted.drm_di_minor >= 0 && wanted.drm_di_minor <= 4);
    const bool driverFits =
        wanted.drm_dd_major == -1 || (wanted.drm_dd_major == 1 && wanted.drm_dd_minor == 0);
    wanted = {1, 4, 1, 0};
    call.store(wanted);
    return interfaceFits && driverFits ? 0 : -EINVAL;
}

int CardHandle::getClient(IoctlCall& call) {
    auto client = call.load<drm_client>();
    if (client.idx != 0)
        return -EINVAL;
    client.auth = authenticated_ ? 1 : 0;
    client.pid = pid_;
    client.uid = getuid();
    client.magic = 0;
    client.iocs = 0;
    call.store(client);
    return 0;
}

int CardHandle::getMagic(IoctlCall& call) {
    if (magic_ == 0)
        magic_ = card_.newMagic();
    call.store(drm_auth{magic_});
    return 0;
}

int CardHandle::authMagic(IoctlCall& call) {
    return card_.authenticate(call.load<drm_auth>().magic);
}

int CardHandle::setMaster(IoctlCall& /*call*/) {
    return card_.setMaster(*this);
}

int CardHandle::dropMaster(IoctlCall& /*call*/) {
    return card_.dropMaster(*this);
}

int CardHandle::getCapability(IoctlCall& call) {
    auto capability = call.load<drm_get_cap>();
    switch (capability.capability) {
        case DRM_CAP_DUMB_BUFFER:
        case DRM_CAP_VBLANK_HIGH_CRTC:
        case DRM_CAP_TIMESTAMP_MONOTONIC:
        case DRM_CAP_CRTC_IN_VBLANK_EVENT:
            capability.value = 1;
            break;
        case DRM_CAP_CURSOR_WIDTH:
        case DRM_CAP_CURSOR_HEIGHT:
            capability.value = 64;
            break;
        case DRM_CAP_DUMB_PREFERRED_DEPTH:
        case DRM_CAP_DUMB_PREFER_SHADOW:
        case DRM_CAP_PRIME:
        case DRM_CAP_ASYNC_PAGE_FLIP:
        case DRM_CAP_ADDFB2_MODIFIERS:
        case DRM_CAP_PAGE_FLIP_TARGET:
        case DRM_CAP_SYNCOBJ:
        case DRM_CAP_SYNCOBJ_TIMELINE:
            capability.value = 0;
            break;
        default:
            return -EINVAL;
    }
    call.store(capability);
    return 0;
}

int CardHandle::setClientCapability(IoctlCall& call) {
    const auto wanted = call.load<drm_set_client_cap>();
    bool* known = nullptr;
    switch (wanted.capability) {
        case DRM_CLIENT_CAP_STEREO_3D:
            known = &stereo_;
            break;
        case DRM_CLIENT_CAP_UNIVERSAL_PLANES:
            known = &universalPlanes_;
            break;
        case DRM_CLIENT_CAP_ASPECT_RATIO:
            known = &aspectRatios_;
            break;
        case DRM_CLIENT_CAP_ATOMIC:
            return -EOPNOTSUPP;
        default:
            return -EINVAL;
    }
    if (wanted.value > 1)
        return -EINVAL;
    *known = wanted.value == 1;
    return 0;
}

}  // namespace board
