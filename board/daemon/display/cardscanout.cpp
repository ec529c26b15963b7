// Modesetting, page flips and vertical blanks.
#include "board/daemon/display/cardhandle.h"

#include <drm.h>
#include <drm_mode.h>

#include <cerrno>
#include <cstring>
#include <limits>

namespace board {

namespace {

// 0, or -ENOSPC when the mode shows more than the picture has.
int checkViewport(const drm_mode_modeinfo& mode, const Framebuffer& framebuffer, std::uint32_t x,
                  std::uint32_t y) {
    const bool fits = std::uint64_t(x) + mode.hdisplay <= framebuffer.width &&
                      std::uint64_t(y) + mode.vdisplay <= framebuffer.height;
    return fits ? 0 : -ENOSPC;
}

constexpr std::uint32_t unchangedFramebuffer = std::numeric_limits<std::uint32_t>::max();

}  // namespace

int CardHandle::setCrtc(IoctlCall& call) {
    const auto wanted = call.load<drm_mode_crtc>();
    constexpr std::uint32_t farthest = std::numeric_limits<std::int32_t>::max();
    if (wanted.x > farthest || wanted.y > farthest)
        return -ERANGE;
    if (wanted.crtc_id != id::crtc)
        return -ENOENT;
    Crtc& crtc = card_.crtc();
    FramebufferRef framebuffer;
    if (wanted.mode_valid != 0) {
        if (wanted.fb_id == unchangedFramebuffer) {
            if (!crtc.on())
                return -EINVAL;
            framebuffer = crtc.latest();
        } else {
            framebuffer = card_.findFramebuffer(wanted.fb_id);
            if (framebuffer == nullptr)
                return -ENOENT;
        }
        if (!isUsableMode(wanted.mode))
            return -EINVAL;
        const int problem = checkViewport(wanted.mode, *framebuffer, wanted.x, wanted.y);
        if (problem != 0)
            return problem;
    }
    if ((wanted.count_connectors > 0) != (wanted.mode_valid != 0) || wanted.count_connectors > 1)
        return -EINVAL;
    if (wanted.count_connectors == 1) {
        if (call.blocks.empty() || call.blocks[0].sent.empty())
            return -EFAULT;
        const std::vector<std::uint32_t> connectors = call.blocks[0].sentAs<std::uint32_t>();
        if (connectors.empty())
            return -EFAULT;
        if (connectors[0] != id::connector)
            return -ENOENT;
    }
    card_.clientTookOver();
    if (framebuffer == nullptr) {
        crtc.off();
        return 0;
    }
    // Setting a mode wakes the display up.
    card_.setConnectorProperty(id::dpms, DRM_MODE_DPMS_ON);
    crtc.set(wanted.mode, framebuffer, wanted.x, wanted.y);
    return 0;
}

int CardHandle::pageFlip(IoctlCall& call) {
    const auto wanted = call.load<drm_mode_crtc_page_flip>();
    // Neither asynchronous flips nor flips at a given vertical blank.
    if ((wanted.flags & ~std::uint32_t(DRM_MODE_PAGE_FLIP_EVENT)) != 0 || wanted.reserved != 0)
        return -EINVAL;
    if (wanted.crtc_id != id::crtc)
        return -ENOENT;
    Crtc& crtc = card_.crtc();
    if (!crtc.on())
        return -EBUSY;
    if (crtc.asleep())
        return -EINVAL;
    const FramebufferRef framebuffer = card_.findFramebuffer(wanted.fb_id);
    if (framebuffer == nullptr)
        return -ENOENT;
    const int problem = checkViewport(crtc.mode(), *framebuffer, crtc.x(), crtc.y());
    if (problem != 0)
        return problem;
    if (framebuffer->format != crtc.latest()->format)
        return -EINVAL;
    if (crtc.flipPending())
        return -EBUSY;
    EventTarget target;
    if ((wanted.flags & DRM_MODE_PAGE_FLIP_EVENT) != 0) {
        if (!events_->reserve())
            return -ENOMEM;
        target = {events_, wanted.user_data};
    }
    card_.clientTookOver();
    crtc.flip(framebuffer, target);
    return 0;
}

int CardHandle::waitVblank(IoctlCall& call) {
    auto wait = call.load<drm_wait_vblank>();
    // Any bits can come; the field's own type knows only the named ones.
    std::uint32_t type = 0;
    std::memcpy(&type, &wait.request.type, sizeof type);
    constexpr std::uint32_t known = _DRM_VBLANK_RELATIVE | _DRM_VBLANK_EVENT |
                                    _DRM_VBLANK_NEXTONMISS | _DRM_VBLANK_SECONDARY |
                                    _DRM_VBLANK_HIGH_CRTC_MASK;
    const std::uint32_t otherCrtcs = _DRM_VBLANK_SECONDARY | _DRM_VBLANK_HIGH_CRTC_MASK;
    Crtc& crtc = card_.crtc();
    if ((type & ~known) != 0 || (type & otherCrtcs) != 0 || !crtc.on() || crtc.asleep())
        return -EINVAL;
    const std::uint64_t count = crtc.vblankCount();
    // Clients count in 32 bits: a difference says on which side of now the wanted one lies.
    std::int32_t ahead = std::int32_t(wait.request.sequence);
    if ((type & _DRM_VBLANK_RELATIVE) == 0)
        ahead = std::int32_t(wait.request.sequence - std::uint32_t(count));
    if (ahead <= 0 && (type & _DRM_VBLANK_NEXTONMISS) != 0 && (type & _DRM_VBLANK_RELATIVE) == 0)
        ahead = 1;
    const std::uint64_t due = ahead > 0 ? count + std::uint64_t(ahead) : count;
    if ((type & _DRM_VBLANK_EVENT) != 0) {
        if (!events_->reserve())
            return -ENOMEM;
        wait.reply.sequence = std::uint32_t(due);
        crtc.notifyAt(due, {events_, wait.request.signal});
        call.store(wait);
        return 0;
    }
    if (due > count) {
        wait.request.type = drm_vblank_seq_type(type & ~std::uint32_t(_DRM_VBLANK_RELATIVE));
        wait.request.sequence = std::uint32_t(due);
        call.store(wait);
        return -EINTR;  // the caller asks again: nothing may wait in the daemon
    }
    const std::int64_t time = crtc.vblankTime_ns(count);
    wait.reply.type = drm_vblank_seq_type(type);
    wait.reply.sequence = std::uint32_t(count);
    wait.reply.tval_sec = long(time / 1000000000);
    wait.reply.tval_usec = long(time % 1000000000 / 1000);
    call.store(wait);
    return 0;
}

}  // namespace board
