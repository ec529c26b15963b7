// ioctl that a signal does not end: result and errno are those of the last call.
#pragma once

#include <sys/ioctl.h>
#include <cerrno>

inline int xioctl(int fd, unsigned long request, void* argument) {
    int result = 0;
    do {
        result = ioctl(fd, request, argument);
    } while (result == -1 && errno == EINTR);
    return result;
}
