// libdrm's functions and the calls on the card's device file, answered by the played card.
#include "tests/unit/display/fakedrmcalls.h"

#include "tests/unit/display/fakefiles.h"

#include <fcntl.h>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <string_view>

using Guard = FakeDrmGuard;

extern "C" {
int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
void* __real_mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset);
void* __wrap_mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset);
int __real_munmap(void* address, size_t length);
int __wrap_munmap(void* address, size_t length);
}

extern "C" {

int __wrap_open(const char* path, int flags, ...) {
    if (std::string_view(path) == "/dev/dri/card0") {
        return FakeDrmCalls::open(flags);
    }
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return __real_open(FakeFiles::located(path).c_str(), flags, mode);
}

void* __wrap_mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset) {
    return fd >= 0 && FakeDrmCalls::isCard(fd)
               ? FakeDrmCalls::map(length, offset)
               : __real_mmap(address, length, protection, flags, fd, offset);
}

int __wrap_munmap(void* address, size_t length) {
    FakeDrmCalls::unmap(address);
    return __real_munmap(address, length);
}

drmModeResPtr drmModeGetResources(int) {
    const Guard guard(FakeDrmCalls::lock());
    if (FakeDrmCalls::failing("resources")) {
        return nullptr;
    }
    const auto& connectors = FakeDrm::instance().connectors;
    auto* result = allocateZeroed<drmModeRes>();
    result->count_connectors = static_cast<int>(connectors.size());
    result->connectors = allocateZeroed<std::uint32_t>(connectors.size());
    for (std::size_t i = 0; i < connectors.size(); ++i) {
        result->connectors[i] = connectors[i].id;
    }
    FakeDrmCalls::countFetch(1);
    return result;
}

void drmModeFreeResources(drmModeResPtr object) {
    free(object->connectors);
    free(object);
    FakeDrmCalls::countFetch(-1);
}

drmModeConnectorPtr drmModeGetConnector(int, uint32_t id) {
    return FakeDrmCalls::fetch(id, "connector");
}

drmModeConnectorPtr drmModeGetConnectorCurrent(int, uint32_t id) {
    return FakeDrmCalls::fetch(id, "current");
}

void drmModeFreeConnector(drmModeConnectorPtr object) {
    free(object->modes);
    free(object->props);
    free(object->prop_values);
    free(object);
    FakeDrmCalls::countFetch(-1);
}

drmModeEncoderPtr drmModeGetEncoder(int, uint32_t id) {
    const Guard guard(FakeDrmCalls::lock());
    if (!FakeDrmCalls::failing("encoder")) {
        for (const FakeDrm::Encoder& encoder : FakeDrm::instance().encoders) {
            if (encoder.id == id) {
                auto* result = allocateZeroed<drmModeEncoder>();
                result->encoder_id = id;
                result->crtc_id = encoder.crtc;
                result->possible_crtcs = encoder.possibleCrtcs;
                FakeDrmCalls::countFetch(1);
                return result;
            }
        }
    }
    return nullptr;
}

void drmModeFreeEncoder(drmModeEncoderPtr object) {
    free(object);
    FakeDrmCalls::countFetch(-1);
}

drmModePropertyPtr drmModeGetProperty(int, uint32_t id) {
    const Guard guard(FakeDrmCalls::lock());
    for (const FakeDrm::Connector& connector : FakeDrm::instance().connectors) {
        for (const FakeDrm::Property& property : connector.properties) {
            if (property.id == id) {
                auto* result = allocateZeroed<drmModePropertyRes>();
                result->prop_id = id;
                property.name.copy(result->name, sizeof(result->name));
                FakeDrmCalls::countFetch(1);
                return result;
            }
        }
    }
    return nullptr;
}

void drmModeFreeProperty(drmModePropertyPtr object) {
    free(object);
    FakeDrmCalls::countFetch(-1);
}

int drmModeObjectSetProperty(int, uint32_t object, uint32_t type, uint32_t id, uint64_t value) {
    const Guard guard(FakeDrmCalls::lock());
    if (object != 33 || type != DRM_MODE_OBJECT_CONNECTOR) {
        return -EINVAL;
    }
    FakeDrm::instance().setProperties[id] = value;
    return 0;
}

int drmIoctl(int, unsigned long request, void* argument) {
    return FakeDrmCalls::ioctl(request, argument);
}

int drmModeAddFB2(int, uint32_t width, uint32_t height, uint32_t format, const uint32_t handles[4],
                  const uint32_t pitches[4], const uint32_t offsets[4], uint32_t* id, uint32_t) {
    const Guard guard(FakeDrmCalls::lock());
    if (FakeDrmCalls::failing("framebuffer", EINVAL) || handles[0] != handles[1] ||
        offsets[0] != 0) {
        return -EINVAL;
    }
    FakeDrm& fake = FakeDrm::instance();
    *id = FakeDrmCalls::newFramebuffer();
    fake.framebuffers[*id] = {width,      height,     format,    pitches[0],
                              handles[0], offsets[1], pitches[1]};
    return 0;
}

int drmModeRmFB(int, uint32_t id) {
    const Guard guard(FakeDrmCalls::lock());
    return FakeDrm::instance().framebuffers.erase(id) == 1 ? 0 : -ENOENT;
}

int drmModeSetCrtc(int, uint32_t crtc, uint32_t framebuffer, uint32_t x, uint32_t y,
                   uint32_t* connectors, int count, drmModeModeInfoPtr mode) {
    const Guard guard(FakeDrmCalls::lock());
    if (FakeDrmCalls::failing("crtc", EINVAL) || x != 0 || y != 0 || count != 1) {
        return -EINVAL;
    }
    FakeDrm::instance().scanout = {crtc, framebuffer, connectors[0], *mode};
    return 0;
}

int drmModePageFlip(int, uint32_t crtc, uint32_t framebuffer, uint32_t flags, void* userData) {
    return FakeDrmCalls::flip(crtc, framebuffer, flags, userData);
}

int drmHandleEvent(int fd, drmEventContextPtr context) {
    {
        const Guard guard(FakeDrmCalls::lock());
        if (FakeDrmCalls::failing("event")) {
            return -1;
        }
    }
    void* userData = nullptr;
    if (FakeDrmCalls::takeEvent(fd, userData) && context->version >= 2 &&
        context->page_flip_handler != nullptr) {
        context->page_flip_handler(fd, 1, 0, 0, userData);
    }
    return 0;
}

}  // extern "C"
