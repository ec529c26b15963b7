// Checks in programs that run as children of the tests: a failed one is printed and remembered.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstring>

inline int& failures() {
    static int count = 0;
    return count;
}

#define CHECK(condition)                                                                   \
    do {                                                                                   \
        const bool holds = (condition);                                                    \
        if (!holds) {                                                                      \
            std::fprintf(stderr, "%s:%d: %s (errno %s)\n", __FILE__, __LINE__, #condition, \
                         std::strerror(errno));                                            \
            ++failures();                                                                  \
        }                                                                                  \
    } while (false)

// A call that fails with this errno.
#define CHECK_FAILS(call, error)                 \
    do {                                         \
        errno = 0;                               \
        CHECK((call) == -1 && errno == (error)); \
    } while (false)
