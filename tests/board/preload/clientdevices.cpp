// Cases: opening, ioctls, what the file system says about nodes.
#include "tests/board/preload/client.h"

#include <dirent.h>
#include <drm.h>
#include <drm_mode.h>
#include <linux/input.h>
#include <linux/uvcvideo.h>
#include <linux/videodev2.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace {

void* const nowhere = reinterpret_cast<void*>(0xdead0000);

void openAndCall() {
    const int lowest = ::dup(0);
    ::close(lowest);
    const int fd = openCamera();
    CHECK(fd == lowest);  // what the library keeps for itself is out of the way
    fake::Sum sum = {20, 22, 0};
    errno = 77;
    CHECK(::ioctl(fd, fake::add, &sum) == 0 && sum.sum == 42);
    CHECK(errno == 77);
    const int request = int(fake::add);  // programs keep requests in an int
    sum.one = 1;
    CHECK(::ioctl(fd, std::uint64_t(std::int64_t(request)), &sum) == 0 && sum.sum == 23);
    CHECK_FAILS(::ioctl(fd, fake::fail, EBUSY), EBUSY);
    CHECK((::fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0);
    CHECK(::close(fd) == 0);
    CHECK_FAILS(::ioctl(fd, fake::nothing, 0), EBADF);
}

void commands() {
    CHECK(std::system(nullptr) != 0);
    CHECK(std::system("touch /userdata/mark") == 0);
    CHECK(std::system("echo 5.22> /userdata/version") == 0);
    CHECK(std::system("sync; exit 7") == 7 << 8);
    ::sync();
}

void openFlags() {
    const int fd = openCamera(O_RDWR | O_CLOEXEC | O_NONBLOCK);
    CHECK((::fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0);
    CHECK((::fcntl(fd, F_GETFL) & O_NONBLOCK) != 0);
    CHECK((asked(fd, fake::fileFlags) & O_NONBLOCK) != 0);
    CHECK(::fcntl(fd, F_SETFL, 0) == 0);
    CHECK((asked(fd, fake::fileFlags) & O_NONBLOCK) == 0);
    const int at = ::openat(AT_FDCWD, camera, O_RDWR);
    const int large = ::open64(camera, O_RDWR);
    const int odd = ::open("//dev/./snd/../video0", O_RDWR);
    CHECK(asked(at, fake::connections) == 4 && large >= 0 && odd >= 0);
    CHECK_FAILS(::open(camera, O_RDONLY | O_DIRECTORY), ENOTDIR);
    std::FILE* stream = std::fopen(input, "r");
    CHECK(stream != nullptr && asked(at, fake::connections) == 5);
    std::fclose(stream);
}

void faults() {
    const int fd = openCamera();
    CHECK_FAILS(::ioctl(fd, fake::add, nullptr), EFAULT);
    CHECK_FAILS(::ioctl(fd, fake::add, nowhere), EFAULT);
    CHECK_FAILS(::ioctl(fd, fake::requests, nowhere), EFAULT);  // a fault on the way back
    // Unknown ones are refused before the pointer is looked at, and change nothing.
    const unsigned long unknown = _IOC(_IOC_READ | _IOC_WRITE, 'X', 1, 0x3fff);
    CHECK_FAILS(::ioctl(fd, unknown, nowhere), ENOTTY);
    static unsigned char buffer[0x3fff];
    std::memset(buffer, 0x5a, sizeof buffer);
    CHECK_FAILS(::ioctl(fd, unknown, buffer), ENOTTY);
    bool same = true;
    for (const unsigned char byte : buffer)
        same = same && byte == 0x5a;
    CHECK(same);
    CHECK(!::isatty(fd) && errno == ENOTTY);
    // The connection is still in step.
    fake::Sum sum = {1, 2, 0};
    CHECK(::ioctl(fd, fake::add, &sum) == 0 && sum.sum == 3);
}

void nested() {
    const int fd = openCamera();
    v4l2_ext_control items[3] = {};
    for (unsigned i = 0; i < 3; ++i)
        items[i].id = 100 + i;
    v4l2_ext_controls controls{};
    controls.count = 3;
    controls.controls = items;
    CHECK(::ioctl(fd, VIDIOC_G_EXT_CTRLS, &controls) == 0);
    CHECK(items[0].value == 200 && items[2].value == 204 && controls.controls == items);
    controls.controls = static_cast<v4l2_ext_control*>(nowhere);
    CHECK_FAILS(::ioctl(fd, VIDIOC_G_EXT_CTRLS, &controls), EFAULT);
    CHECK_FAILS(::ioctl(fd, VIDIOC_G_EXT_CTRLS, nowhere), EFAULT);
    CHECK_FAILS(::ioctl(fd, VIDIOC_S_EXT_CTRLS, nowhere), ENOTTY);  // this board has none
    unsigned char data[5] = {1, 2, 3, 4, 5};
    uvc_xu_control_query query{};
    query.size = 4;
    query.data = data;
    CHECK(::ioctl(fd, UVCIOC_CTRL_QUERY, &query) == 0);
    CHECK(data[0] == 4 && data[3] == 1 && data[4] == 5);
}

void nestedCounts() {
    const int fd = ::open(display, O_RDWR);
    drm_mode_card_res resources{};
    CHECK(::ioctl(fd, DRM_IOCTL_MODE_GETRESOURCES, &resources) == 0);
    CHECK(resources.count_crtcs == 2);
    std::uint32_t crtcs[3] = {7, 7, 7};
    resources.crtc_id_ptr = reinterpret_cast<std::uintptr_t>(crtcs);
    CHECK(::ioctl(fd, DRM_IOCTL_MODE_GETRESOURCES, &resources) == 0);
    CHECK(crtcs[0] == 31 && crtcs[1] == 32 && crtcs[2] == 7);
    resources.crtc_id_ptr = 0xdead0000;
    CHECK_FAILS(::ioctl(fd, DRM_IOCTL_MODE_GETRESOURCES, &resources), EFAULT);
}

void values() {
    const int fd = ::open(input, O_RDWR);
    CHECK(::ioctl(fd, EVIOCGRAB, 1) == 0);  // numbered like a pointer, passed as a value
    CHECK_FAILS(::ioctl(fd, EVIOCGRAB, 2), EBUSY);
    int on = 1;
    CHECK(::ioctl(fd, FIONBIO, &on) == 0);  // the descriptor's own
    CHECK((::fcntl(fd, F_GETFL) & O_NONBLOCK) != 0);
}

void presence() {
    struct stat byPath {};
    struct stat byDescriptor {};
    CHECK(::stat(camera, &byPath) == 0);
    CHECK(S_ISCHR(byPath.st_mode) && (byPath.st_mode & 0777) == 0660);
    CHECK(byPath.st_rdev == makedev(81, 0) && byPath.st_ino == 1000);
    const int fd = openCamera();
    CHECK(::fstat(fd, &byDescriptor) == 0);
    CHECK(byDescriptor.st_mode == byPath.st_mode && byDescriptor.st_rdev == byPath.st_rdev &&
          byDescriptor.st_ino == byPath.st_ino && byDescriptor.st_dev == byPath.st_dev);
    struct statx extended {};
    CHECK(::statx(fd, "", AT_EMPTY_PATH, STATX_ALL, &extended) == 0 &&
          extended.stx_rdev_major == 81 && extended.stx_ino == 1000);
    CHECK(::lstat(display, &byPath) == 0 && byPath.st_rdev == makedev(226, 0));
    CHECK(::stat("/dev/dri", &byPath) == 0 && S_ISDIR(byPath.st_mode));
    CHECK(::stat("/dev/snd/", &byPath) == 0 && S_ISDIR(byPath.st_mode));
    CHECK(::access(camera, R_OK | W_OK) == 0);
    CHECK_FAILS(::access(camera, X_OK), EACCES);
    char link[16];
    CHECK_FAILS(::readlink(camera, link, sizeof link), EINVAL);
    CHECK_FAILS(::unlink(camera), EACCES);
}

void presenceIsFree() {
    const int fd = openCamera();
    const std::uint32_t before = asked(fd, fake::requests);
    struct stat status {};
    for (int i = 0; i < 100; ++i) {
        CHECK(::access("/dev/video7", F_OK) == -1);
        CHECK(::stat(camera, &status) == 0);
    }
    CHECK(asked(fd, fake::requests) == before + 1);
}

// Nodes of the machine of the kinds that the board has are never seen. The test puts them there.
void hostHidden() {
    struct stat status {};
    for (const char* path : {"/dev/video1", "/dev/dri/renderD128", "/dev/snd/timer",
                             "/dev/input/mice", "/dev/media0", "/dev/v4l-subdev0"}) {
        CHECK_FAILS(::open(path, O_RDWR), ENOENT);
        CHECK_FAILS(::stat(path, &status), ENOENT);
        CHECK_FAILS(::access(path, F_OK), ENOENT);
        CHECK(std::fopen(path, "r") == nullptr && errno == ENOENT);
    }
    CHECK(::open("/dev/null", O_RDWR) >= 0);
    ::DIR* folder = ::opendir("/dev/input");
    CHECK(folder != nullptr);
    std::string names;
    while (const dirent* entry = folder == nullptr ? nullptr : ::readdir(folder))
        if (entry->d_name[0] != '.')
            names += std::string(entry->d_name) + " ";
    CHECK(names == "event0 ");
}

// Run without a board.
void hostSeen() {
    struct stat status {};
    CHECK_FAILS(::stat(camera, &status), ENOENT);  // no camera on the machine that runs the tests
    CHECK(::stat("/dev/null", &status) == 0);
    CHECK_FAILS(::open("/userdata/version", O_RDONLY), ENOENT);
    timespec now{};
    CHECK(::clock_gettime(CLOCK_MONOTONIC, &now) == 0);
}

}  // namespace

const Case deviceCases[] = {
    {"openAndCall", openAndCall}, {"commands", commands}, {"openFlags", openFlags},
    {"faults", faults},           {"nested", nested},     {"nestedCounts", nestedCounts},
    {"values", values},           {"presence", presence}, {"presenceIsFree", presenceIsFree},
    {"hostHidden", hostHidden},   {"hostSeen", hostSeen}, {nullptr, nullptr}};
