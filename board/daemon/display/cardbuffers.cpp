// Dumb buffers and frame buffers of one client.
#include "board/daemon/display/cardhandle.h"

#include <drm.h>
#include <drm_fourcc.h>
#include <drm_mode.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace board {

namespace {

// A buffer's place in the descriptor's map space: its handle in the upper half.
constexpr unsigned mapShift = 32;

}  // namespace

std::uint32_t CardHandle::newBufferHandle() const {
    std::uint32_t handle = 1;
    for (const auto& buffer : buffers_) {
        if (buffer.first != handle)
            break;
        ++handle;
    }
    return handle;
}

int CardHandle::createDumb(IoctlCall& call) {
    auto wanted = call.load<drm_mode_create_dumb>();
    int error = 0;
    std::shared_ptr<DumbBuffer> buffer =
        DumbBuffer::create(card_.budget(), wanted.width, wanted.height, wanted.bpp, &error);
    if (buffer == nullptr)
        return -error;
    wanted.handle = newBufferHandle();
    wanted.pitch = buffer->pitch();
    wanted.size = buffer->size();
    buffers_[wanted.handle] = std::move(buffer);
    call.store(wanted);
    return 0;
}

int CardHandle::mapDumb(IoctlCall& call) {
    auto wanted = call.load<drm_mode_map_dumb>();
    if (buffers_.count(wanted.handle) == 0)
        return -ENOENT;
    wanted.offset = std::uint64_t(wanted.handle) << mapShift;
    call.store(wanted);
    return 0;
}

Mapping CardHandle::map(std::uint64_t offset, std::uint64_t length, std::uint32_t /*protection*/) {
    const auto found = buffers_.find(std::uint32_t(offset >> mapShift));
    const bool atStart = (offset & ((1ull << mapShift) - 1)) == 0;
    if (found == buffers_.end() || !atStart || length == 0 || length > found->second->size())
        return {-1, -EINVAL};
    return {found->second->memfd(), 0};
}

int CardHandle::destroyDumb(IoctlCall& call) {
    return buffers_.erase(call.load<drm_mode_destroy_dumb>().handle) == 1 ? 0 : -EINVAL;
}

int CardHandle::gemClose(IoctlCall& call) {
    return buffers_.erase(call.load<drm_gem_close>().handle) == 1 ? 0 : -EINVAL;
}

int CardHandle::keepFramebuffer(Framebuffer framebuffer, std::uint32_t& framebufferId) {
    const int problem = checkFramebuffer(framebuffer);
    if (problem != 0)
        return problem;
    const std::uint32_t added = card_.addFramebuffer(std::move(framebuffer));
    if (added == 0)
        return -ENOMEM;
    framebuffers_.push_back(added);
    framebufferId = added;
    return 0;
}

int CardHandle::addFramebuffer(IoctlCall& call) {
    auto wanted = call.load<drm_mode_fb_cmd>();
    if (wanted.depth != 24 || wanted.bpp != 32)
        return -EINVAL;
    const auto buffer = buffers_.find(wanted.handle);
    if (buffer == buffers_.end())
        return wanted.handle == 0 ? -EINVAL : -ENOENT;
    Framebuffer framebuffer;
    framebuffer.width = wanted.width;
    framebuffer.height = wanted.height;
    framebuffer.format = DRM_FORMAT_XRGB8888;
    framebuffer.buffers[0] = buffer->second;
    framebuffer.pitches[0] = wanted.pitch;
    const int result = keepFramebuffer(std::move(framebuffer), wanted.fb_id);
    call.store(wanted);
    return result;
}

int CardHandle::addFramebuffer2(IoctlCall& call) {
    auto wanted = call.load<drm_mode_fb_cmd2>();
    if ((wanted.flags & ~std::uint32_t(DRM_MODE_FB_INTERLACED | DRM_MODE_FB_MODIFIERS)) != 0)
        return -EINVAL;
    const unsigned planes = planeCount(wanted.pixel_format);
    // No modifiers here: neither announced by the flag nor given without it.
    const bool modified = std::any_of(std::begin(wanted.modifier), std::end(wanted.modifier),
                                      [](std::uint64_t modifier) { return modifier != 0; });
    if (planes == 0 || modified || (wanted.flags & DRM_MODE_FB_MODIFIERS) != 0)
        return -EINVAL;
    Framebuffer framebuffer;
    framebuffer.width = wanted.width;
    framebuffer.height = wanted.height;
    framebuffer.format = wanted.pixel_format;
    for (unsigned plane = 0; plane < planes; ++plane) {
        const auto buffer = buffers_.find(wanted.handles[plane]);
        if (buffer == buffers_.end())
            return wanted.handles[plane] == 0 ? -EINVAL : -ENOENT;
        framebuffer.buffers[plane] = buffer->second;
        framebuffer.pitches[plane] = wanted.pitches[plane];
        framebuffer.offsets[plane] = wanted.offsets[plane];
    }
    const int result = keepFramebuffer(std::move(framebuffer), wanted.fb_id);
    call.store(wanted);
    return result;
}

int CardHandle::getFramebuffer(IoctlCall& call) {
    auto query = call.load<drm_mode_fb_cmd>();
    const FramebufferRef framebuffer = card_.findFramebuffer(query.fb_id);
    if (framebuffer == nullptr)
        return -ENOENT;
    if (framebuffer->format != DRM_FORMAT_XRGB8888)
        return -EINVAL;  // this old call can describe one plane only
    query.width = framebuffer->width;
    query.height = framebuffer->height;
    query.pitch = framebuffer->pitches[0];
    query.bpp = 32;
    query.depth = 24;
    query.handle = 0;
    if (card_.isMaster(*this) && framebuffer->buffers[0] != nullptr) {
        query.handle = newBufferHandle();
        buffers_[query.handle] = framebuffer->buffers[0];
    }
    call.store(query);
    return 0;
}

int CardHandle::removeFramebuffer(IoctlCall& call) {
    const auto framebufferId = call.load<std::uint32_t>();
    const auto found = std::find(framebuffers_.begin(), framebuffers_.end(), framebufferId);
    if (found == framebuffers_.end())
        return -ENOENT;
    framebuffers_.erase(found);
    card_.removeFramebuffer(framebufferId);
    return 0;
}

}  // namespace board
