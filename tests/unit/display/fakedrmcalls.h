// The libdrm functions' way to the played card.
#pragma once

#include "tests/unit/display/fakedrm.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>

using FakeDrmGuard = std::lock_guard<std::recursive_mutex>;

template <typename T>
T* allocateZeroed(std::size_t count = 1) {
    return static_cast<T*>(calloc(std::max<std::size_t>(count, 1), sizeof(T)));
}

struct FakeDrmCalls {
    static FakeDrm& card() { return FakeDrm::instance(); }
    static std::recursive_mutex& lock() { return card().lock; }
    static bool failing(const char* step, int error = 5) { return card().failing(step, error); }
    static std::uint32_t newFramebuffer() { return card().nextFramebuffer++; }

    static int open(int flags);
    static bool isCard(int fd);
    static void* map(std::size_t length, off_t offset);
    static void unmap(void* address);
    static void countFetch(int change);
    static drmModeConnector* fetch(std::uint32_t id, const char* step);
    static int ioctl(unsigned long request, void* argument);
    static int flip(std::uint32_t crtc, std::uint32_t framebuffer, std::uint32_t flags,
                    void* userData);
    static bool takeEvent(int fd, void*& userData);
};
