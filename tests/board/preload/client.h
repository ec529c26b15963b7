// The program that the tests run under the client library: one case a name.
#pragma once

#include "tests/board/preload/check.h"
#include "tests/board/preload/fakeorders.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <cstdint>
#include <ctime>

struct Case {
    const char* name;
    void (*run)();
};

// Tables of the source files, ended by an empty entry.
extern const Case deviceCases[];
extern const Case descriptorCases[];
extern const Case waitCases[];
extern const Case parkCases[];
extern const Case timeCases[];

constexpr char camera[] = "/dev/video0";
constexpr char display[] = "/dev/dri/card0";
constexpr char input[] = "/dev/input/event0";

inline int openCamera(int flags = O_RDWR) {
    const int fd = ::open(camera, flags);
    CHECK(fd >= 0);
    return fd;
}

inline std::uint32_t asked(int fd, unsigned long order) {
    std::uint32_t value = 0;
    CHECK(::ioctl(fd, order, &value) == 0);
    return value;
}

// The machine's time, whatever the library makes of the clocks.
std::int64_t machineNow_ms();
