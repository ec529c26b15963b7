// The libc calls of the code under test: those that concern the fake rig go to it.
#include "tests/unit/camera/fakerig.h"

#include <fcntl.h>
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace {

constexpr char presetNode[] = "/etc/uvc_param.conf";

bool isDevice(const char* path) {
    return std::strcmp(path, cameraNode) == 0 || std::strncmp(path, "/dev/input/", 11) == 0;
}

template <typename Result>
Result resultOf(Result result) {
    if (result < 0) {
        errno = static_cast<int>(-result);
        return -1;
    }
    return result;
}

}  // namespace

extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_close(int fd);
int __real_access(const char* path, int mode);
int __real_ioctl(int fd, unsigned long request, ...);
ssize_t __real_read(int fd, void* buffer, size_t size);
int __real_nanosleep(const timespec* length, timespec* rest);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument) {
    const FakeRig* rig = FakeRig::current();
    if (rig != nullptr && rig->noThreads) {
        return EAGAIN;
    }
    return __real_pthread_create(thread, attributes, run, argument);
}

int __wrap_open(const char* path, int flags, ...) {
    FakeRig* rig = FakeRig::current();
    if (rig != nullptr && isDevice(path)) {
        return resultOf(rig->open(path, flags));
    }
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = va_arg(rest, mode_t);
    va_end(rest);
    if (rig == nullptr || std::strcmp(path, presetNode) != 0) {
        return __real_open(path, flags, mode);
    }
    const bool refused =
        (flags & O_ACCMODE) == O_RDONLY ? rig->presetUnreadable : rig->presetUnwritable;
    if (refused || rig->presetPath.empty()) {
        errno = refused ? EACCES : ENOENT;
        return -1;
    }
    return __real_open(rig->presetPath.c_str(), flags, mode);
}

int __wrap_close(int fd) {
    FakeRig* rig = FakeRig::current();
    if (rig != nullptr && rig->owns(fd)) {
        const int other = rig->closed(fd);
        if (other != -1) {
            __real_close(other);
        }
    }
    return __real_close(fd);
}

int __wrap_access(const char* path, int mode) {
    const FakeRig* rig = FakeRig::current();
    if (rig != nullptr && std::strcmp(path, presetNode) == 0) {
        path = rig->presetPath.c_str();
    } else if (rig != nullptr && isDevice(path)) {
        return resultOf(rig->exists(path) ? 0 : -ENOENT);
    }
    return __real_access(path, mode);
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list rest;
    va_start(rest, request);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    FakeRig* rig = FakeRig::current();
    if (rig != nullptr && rig->owns(fd)) {
        return resultOf(rig->ioctl(fd, request, argument));
    }
    return __real_ioctl(fd, request, argument);
}

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
    FakeRig* rig = FakeRig::current();
    if (rig != nullptr && rig->owns(fd)) {
        return resultOf(rig->read(fd, buffer, size));
    }
    return __real_read(fd, buffer, size);
}

int __wrap_nanosleep(const timespec* length, timespec* rest) {
    FakeRig* rig = FakeRig::current();
    char thread[16] = "";
    pthread_getname_np(pthread_self(), thread, sizeof thread);
    if (rig != nullptr && std::strcmp(thread, "ObsBot") == 0) {
        ++rig->pauses;
    }
    if (rig == nullptr || rig->patient) {
        return __real_nanosleep(length, rest);
    }
    const timespec millisecond{0, 1000000};
    return __real_nanosleep(&millisecond, rest);
}

}  // extern "C"
