// The scan-out buffers: 36 of the ring and the blank one.
#include "control/display/displaydrm.h"
#include "control/display/drmcard.h"

#include <drm_fourcc.h>
#include <sys/mman.h>
#include <algorithm>
#include <cstring>

bool DisplayDrm::modeset_create_fb(buffer_object* bo) {
    drm_mode_create_dumb create{};
    create.width = bo->width;
    create.height = (bo->height * 3 + 1) / 2;  // rounded up: an odd height has one more chroma line
    create.bpp = 8;
    if (drmIoctl(drmFd.get(), DRM_IOCTL_MODE_CREATE_DUMB, &create) != 0) {
        reportDrmFailure("make a scan-out buffer");
        return false;
    }
    bo->pitch = create.pitch;
    bo->handle = create.handle;
    bo->size = create.size;

    const std::uint32_t handles[4] = {bo->handle, bo->handle, 0, 0};
    const std::uint32_t pitches[4] = {bo->pitch, bo->pitch, 0, 0};
    const std::uint32_t offsets[4] = {0, bo->pitch * bo->height, 0, 0};
    if (drmModeAddFB2(drmFd.get(), bo->width, bo->height, DRM_FORMAT_NV12, handles, pitches,
                      offsets, &bo->fb_id, 0) != 0) {
        reportDrmFailure("make a framebuffer");
        bo->fb_id = 0;
        return false;
    }

    drm_mode_map_dumb map{};
    map.handle = bo->handle;
    if (drmIoctl(drmFd.get(), DRM_IOCTL_MODE_MAP_DUMB, &map) != 0) {
        reportDrmFailure("find a scan-out buffer's memory");
        return false;
    }
    void* memory = mmap(nullptr, bo->size, PROT_READ | PROT_WRITE, MAP_SHARED, drmFd.get(),
                        static_cast<off_t>(map.offset));
    if (memory == MAP_FAILED) {
        reportDrmFailure("map a scan-out buffer");
        return false;
    }
    bo->vaddr = static_cast<unsigned char*>(memory);
    return true;
}

void DisplayDrm::modeset_destroy_fb(buffer_object* bo) {
    if (bo->fb_id != 0) {
        drmModeRmFB(drmFd.get(), bo->fb_id);
        bo->fb_id = 0;
    }
    if (bo->vaddr != nullptr) {
        munmap(bo->vaddr, bo->size);
        bo->vaddr = nullptr;
    }
    if (bo->handle != 0) {
        drm_mode_destroy_dumb destroy{};
        destroy.handle = bo->handle;
        drmIoctl(drmFd.get(), DRM_IOCTL_MODE_DESTROY_DUMB, &destroy);
        bo->handle = 0;
    }
}

bool DisplayDrm::createBuffers() {
    if (bufs[0].width == 0 || bufs[0].height == 0) {
        return false;
    }
    for (buffer_object& bo : bufs) {
        if (!modeset_create_fb(&bo)) {
            return false;
        }
    }
    if (!modeset_create_fb(&blankBuf)) {
        return false;
    }
    paintBlank();
    return true;
}

// Black in NV12. By pitch, so that the chroma plane is met where the display reads it.
void DisplayDrm::paintBlank() {
    const std::uint64_t luma =
        std::min(static_cast<std::uint64_t>(blankBuf.pitch) * blankBuf.height, blankBuf.size);
    const std::uint64_t chroma = std::min(luma / 2, blankBuf.size - luma);
    std::memset(blankBuf.vaddr, 0, luma);
    std::memset(blankBuf.vaddr + luma, 128, chroma);
}

void DisplayDrm::close_drm_display() {
    initialized = false;
    for (buffer_object& bo : bufs) {
        modeset_destroy_fb(&bo);
    }
    modeset_destroy_fb(&blankBuf);
    drmFd.reset();
}
