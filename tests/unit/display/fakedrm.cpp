#include "tests/unit/display/fakedrm.h"

#include "tests/unit/display/fakedrmcalls.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>

using Guard = FakeDrmGuard;

FakeDrm& FakeDrm::instance() {
    static FakeDrm fake;
    return fake;
}

drmModeModeInfo FakeDrm::mode(unsigned width, unsigned height, unsigned refresh) {
    drmModeModeInfo info{};
    info.hdisplay = static_cast<std::uint16_t>(width);
    info.vdisplay = static_cast<std::uint16_t>(height);
    info.vrefresh = refresh;
    info.hsync_start = static_cast<std::uint16_t>(width + 88);
    info.hsync_end = static_cast<std::uint16_t>(width + 132);
    info.htotal = static_cast<std::uint16_t>(width + 280);
    info.vsync_start = static_cast<std::uint16_t>(height + 4);
    info.vsync_end = static_cast<std::uint16_t>(height + 9);
    info.vtotal = static_cast<std::uint16_t>(height + 45);
    info.flags = 5;
    snprintf(info.name, sizeof(info.name), "%ux%u", width, height);
    return info;
}

void FakeDrm::reset() {
    const Guard guard(lock);
    present = true;
    completesAtOnce = false;
    pitchMultiple = 64;
    connectors.clear();
    encoders.clear();
    fails = nullptr;
    setProperties.clear();
    framebuffers.clear();
    scanout = Scanout();
    flipUserData = nullptr;
    flipFlags = flipCrtc = 0;
    openFlags.clear();
    counts.clear();
    descriptors.clear();
    buffers.clear();
    mappings.clear();
    flipped.clear();
    flipPending = false;
    fetched = 0;
    nextHandle = 1;
    nextFramebuffer = 101;
}

void FakeDrm::plugDisplay(std::vector<drmModeModeInfo> modes) {
    connectors.push_back({33, true, 32, std::move(modes), {}});
    encoders.push_back({32, 31, 1});
}

bool FakeDrm::completeFlip() {
    const Guard guard(lock);
    const std::uint64_t one = 1;
    return flipPending && !descriptors.empty() &&
           write(*descriptors.rbegin(), &one, sizeof(one)) == sizeof(one);
}

void FakeDrm::loseFlip() {
    const Guard guard(lock);
    flipPending = false;
}

void FakeDrm::setConnected(bool connected) {
    const Guard guard(lock);
    connectors.at(0).connected = connected;
}

std::vector<std::uint32_t> FakeDrm::flips() {
    const Guard guard(lock);
    return flipped;
}

int FakeDrm::calls(const std::string& step) {
    const Guard guard(lock);
    return counts[step];
}

bool FakeDrm::failing(const std::string& step, int error) {
    const int nth = ++counts[step];
    if (fails && fails(step, nth)) {
        errno = error;
        return true;
    }
    return false;
}

bool FakeDrm::allGivenBack(std::string& what) {
    const Guard guard(lock);
    const auto open = std::count_if(descriptors.begin(), descriptors.end(),
                                    [](int fd) { return fcntl(fd, F_GETFD) != -1; });
    what = std::to_string(fetched) + " fetched objects, " + std::to_string(buffers.size()) +
           " buffers, " + std::to_string(framebuffers.size()) + " framebuffers, " +
           std::to_string(mappings.size()) + " mappings, " + std::to_string(open) + " descriptors";
    return fetched == 0 && buffers.empty() && framebuffers.empty() && mappings.empty() && open == 0;
}

drmModeConnector* FakeDrmCalls::fetch(std::uint32_t id, const char* step) {
    const Guard guard(lock());
    const auto& connectors = card().connectors;
    const auto found = std::find_if(connectors.begin(), connectors.end(),
                                    [id](const auto& connector) { return connector.id == id; });
    if (failing(step) || found == connectors.end()) {
        return nullptr;
    }
    auto* result = allocateZeroed<drmModeConnector>();
    result->connector_id = id;
    result->encoder_id = found->encoder;
    result->connection = found->connected ? DRM_MODE_CONNECTED : DRM_MODE_DISCONNECTED;
    result->count_modes = static_cast<int>(found->modes.size());
    result->modes = allocateZeroed<drmModeModeInfo>(found->modes.size());
    std::copy(found->modes.begin(), found->modes.end(), result->modes);
    result->count_props = static_cast<int>(found->properties.size());
    result->props = allocateZeroed<std::uint32_t>(found->properties.size());
    result->prop_values = allocateZeroed<std::uint64_t>(found->properties.size());
    for (std::size_t i = 0; i < found->properties.size(); ++i) {
        const FakeDrm::Property& property = found->properties[i];
        result->props[i] = property.id;
        const auto set = card().setProperties.find(property.id);
        result->prop_values[i] = set == card().setProperties.end() ? property.value : set->second;
    }
    countFetch(1);
    return result;
}

int FakeDrmCalls::ioctl(unsigned long request, void* argument) {
    const Guard guard(lock());
    FakeDrm& fake = card();
    if (request == DRM_IOCTL_MODE_CREATE_DUMB) {
        auto* create = static_cast<drm_mode_create_dumb*>(argument);
        if (failing("create", ENOMEM)) {
            return -1;
        }
        const std::uint32_t bytes = create->width * ((create->bpp + 7) / 8);
        create->pitch = (bytes + fake.pitchMultiple - 1) / fake.pitchMultiple * fake.pitchMultiple;
        create->size = static_cast<std::uint64_t>(create->pitch) * create->height;
        create->handle = fake.nextHandle++;
        fake.buffers[create->handle] = create->size;
        return 0;
    }
    if (request == DRM_IOCTL_MODE_MAP_DUMB) {
        auto* map = static_cast<drm_mode_map_dumb*>(argument);
        map->offset = static_cast<std::uint64_t>(map->handle) << 32;
        return failing("offset") ? -1 : 0;
    }
    if (request == DRM_IOCTL_MODE_DESTROY_DUMB) {
        return fake.buffers.erase(static_cast<drm_mode_destroy_dumb*>(argument)->handle) == 1 ? 0
                                                                                              : -1;
    }
    errno = EINVAL;
    return -1;
}

int FakeDrmCalls::flip(std::uint32_t crtc, std::uint32_t framebuffer, std::uint32_t flags,
                       void* userData) {
    const Guard guard(lock());
    FakeDrm& fake = card();
    if (failing("flip", EINVAL)) {
        return -EINVAL;
    }
    if (fake.flipPending || fake.framebuffers.count(framebuffer) == 0) {
        errno = fake.flipPending ? EBUSY : EINVAL;
        return -errno;
    }
    fake.flipPending = true;
    fake.flipped.push_back(framebuffer);
    fake.flipCrtc = crtc;
    fake.flipFlags = flags;
    fake.flipUserData = userData;
    if (fake.completesAtOnce) {
        fake.completeFlip();
    }
    return 0;
}

bool FakeDrmCalls::takeEvent(int fd, void*& userData) {
    const Guard guard(lock());
    std::uint64_t count = 0;
    if (read(fd, &count, sizeof(count)) != sizeof(count) || !card().flipPending) {
        return false;
    }
    card().flipPending = false;
    userData = card().flipUserData;
    return true;
}

int FakeDrmCalls::open(int flags) {
    const Guard guard(lock());
    FakeDrm& fake = card();
    fake.openFlags.push_back(flags);
    if (!fake.present) {
        errno = ENOENT;
        return -1;
    }
    if (failing("open", EACCES)) {
        return -1;
    }
    const int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    fake.descriptors.insert(fd);
    return fd;
}

bool FakeDrmCalls::isCard(int fd) {
    const Guard guard(lock());
    return card().descriptors.count(fd) != 0;
}

void* FakeDrmCalls::map(size_t length, off_t offset) {
    const Guard guard(lock());
    if (failing("mmap", ENOMEM)) {
        return MAP_FAILED;
    }
    const auto buffer = card().buffers.find(static_cast<std::uint32_t>(offset >> 32));
    if (buffer == card().buffers.end() || buffer->second != length) {
        errno = EINVAL;
        return MAP_FAILED;
    }
    void* memory =
        mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    card().mappings[memory] = length;
    return memory;
}

void FakeDrmCalls::unmap(void* address) {
    const Guard guard(lock());
    card().mappings.erase(address);
}

void FakeDrmCalls::countFetch(int change) {
    const Guard guard(lock());
    card().fetched += change;
}
