// The libc calls of the code under test: those that concern the fake camera go to it.
#include "tests/unit/capture/fakecamera.h"
#include "tests/unit/capture/fakesound.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_access(const char* path, int mode);
int __real_close(int fd);
int __real_stat(const char* path, struct stat* status);
int __real_ioctl(int fd, unsigned long request, ...);
void* __real_mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset);
int __real_munmap(void* start, size_t length);

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument) {
    const FakeCamera* camera = FakeCamera::current();
    if (camera != nullptr && camera->noThreads) {
        return EAGAIN;
    }
    return __real_pthread_create(thread, attributes, run, argument);
}

int __wrap_open(const char* path, int flags, ...) {
    FakeCamera* camera = FakeCamera::current();
    if (camera != nullptr && camera->isNode(path)) {
        return camera->openNode(flags);
    }
    if (std::strcmp(path, "/dev/dri/card0") == 0) {
        path = "/dev/null";  // libdrm's calls are played by the test, but need a descriptor
    }
    const std::string soundText = sound::placeOf(path);
    if (!soundText.empty()) {
        path = soundText.c_str();
    }
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = va_arg(rest, mode_t);
    va_end(rest);
    return __real_open(path, flags, mode);
}

int __wrap_access(const char* path, int mode) {
    const std::string soundText = sound::placeOf(path);
    return __real_access(soundText.empty() ? path : soundText.c_str(), mode);
}

int __wrap_close(int fd) {
    FakeCamera* camera = FakeCamera::current();
    if (camera != nullptr && camera->owns(fd)) {
        camera->closed(fd);
    }
    return __real_close(fd);
}

int __wrap_stat(const char* path, struct stat* status) {
    const FakeCamera* camera = FakeCamera::current();
    if (camera == nullptr || !camera->isNode(path)) {
        return __real_stat(path, status);
    }
    if (camera->statError != 0) {
        errno = camera->statError;
        return -1;
    }
    *status = {};
    status->st_mode = (camera->characterDevice ? S_IFCHR : S_IFREG) | 0660;
    return 0;
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list rest;
    va_start(rest, request);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    FakeCamera* camera = FakeCamera::current();
    if (camera != nullptr && camera->owns(fd)) {
        return camera->ioctl(fd, request, argument);
    }
    return __real_ioctl(fd, request, argument);
}

void* __wrap_mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset) {
    FakeCamera* camera = FakeCamera::current();
    if (camera != nullptr && fd != -1 && camera->owns(fd)) {
        return camera->map(length, offset);
    }
    return __real_mmap(address, length, protection, flags, fd, offset);
}

int __wrap_munmap(void* start, size_t length) {
    FakeCamera* camera = FakeCamera::current();
    if (camera != nullptr && camera->unmap(start)) {
        return 0;  // the camera frees it with itself
    }
    return __real_munmap(start, length);
}

}  // extern "C"
