// The compiler calls these for copies of structures. Through libc a sanitizer would see them as
// accesses by the program under test.
//
// The barriers keep the compiler from recognising the loops and making calls of themselves of them.
#include <cstddef>

#define HIDDEN_AS(name) __asm__(name) __attribute__((visibility("hidden"), used))

extern "C" void* copyMemory(void* to, const void* from, std::size_t count) HIDDEN_AS("memcpy");
extern "C" void* fillMemory(void* to, int value, std::size_t count) HIDDEN_AS("memset");

void* copyMemory(void* to, const void* from, std::size_t count) {
    auto* target = static_cast<unsigned char*>(to);
    const auto* source = static_cast<const unsigned char*>(from);
    for (std::size_t i = 0; i < count; ++i) {
        target[i] = source[i];
        __asm__ volatile("" ::: "memory");
    }
    return to;
}

void* fillMemory(void* to, int value, std::size_t count) {
    auto* target = static_cast<unsigned char*>(to);
    for (std::size_t i = 0; i < count; ++i) {
        target[i] = static_cast<unsigned char>(value);
        __asm__ volatile("" ::: "memory");
    }
    return to;
}
