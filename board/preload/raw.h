// System calls without libc: sanitizers intercept libc's functions and would take our own traffic
// for synchronisation of the program under test.
#pragma once

#include <linux/futex.h>
#include <signal.h>
#include <sys/syscall.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <type_traits>

namespace board::preload {

inline long rawSix(long number, long a, long b, long c, long d, long e, long f) {
#if defined(__x86_64__)
    long result = number;
    register long r10 __asm__("r10") = d;
    register long r8 __asm__("r8") = e;
    register long r9 __asm__("r9") = f;
    __asm__ volatile("syscall"
                     : "+a"(result)
                     : "D"(a), "S"(b), "d"(c), "r"(r10), "r"(r8), "r"(r9)
                     : "rcx", "r11", "memory");
    return result;
#elif defined(__aarch64__)
    register long x8 __asm__("x8") = number;
    register long x0 __asm__("x0") = a;
    register long x1 __asm__("x1") = b;
    register long x2 __asm__("x2") = c;
    register long x3 __asm__("x3") = d;
    register long x4 __asm__("x4") = e;
    register long x5 __asm__("x5") = f;
    __asm__ volatile("svc 0"
                     : "+r"(x0)
                     : "r"(x8), "r"(x1), "r"(x2), "r"(x3), "r"(x4), "r"(x5)
                     : "memory");
    return x0;
#else
#error "system calls of this machine are not known"
#endif
}

template <typename T>
long rawWord(T value) {
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<long>(value);
    else if constexpr (std::is_null_pointer_v<T>)
        return 0;
    else
        return static_cast<long>(value);
}

// The call's result, or -errno; errno itself stays as it is.
template <typename... Arguments>
long raw(long number, Arguments... arguments) {
    static_assert(sizeof...(arguments) <= 6);
    const long words[7] = {rawWord(arguments)...};
    return rawSix(number, words[0], words[1], words[2], words[3], words[4], words[5]);
}

// What a libc function returns for a raw result.
template <typename T = long>
T toLibc(long result) {
    if (result < 0 && result >= -4095) {
        errno = static_cast<int>(-result);
        result = -1;
    }
    // NOLINTNEXTLINE(performance-no-int-to-ptr): system calls return addresses as numbers
    return T(result);
}

// No signal handler of the program runs inside: one that uses the board again would deadlock.
class SignalsBlocked {
  public:
    SignalsBlocked() {
        const std::uint64_t all = ~std::uint64_t(0);
        raw(SYS_rt_sigprocmask, SIG_SETMASK, &all, &before_, sizeof before_);
    }
    ~SignalsBlocked() { raw(SYS_rt_sigprocmask, SIG_SETMASK, &before_, nullptr, sizeof before_); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

  private:
    std::uint64_t before_ = 0;
};

// Held for one round trip at most, always with signals blocked.
class FutexLock {
  public:
    void lock() {
        int expected = 0;
        if (word_.compare_exchange_strong(expected, 1, std::memory_order_acquire))
            return;
        while (word_.exchange(2, std::memory_order_acquire) != 0)
            raw(SYS_futex, &word_, FUTEX_WAIT_PRIVATE, 2, nullptr, nullptr, 0);
    }
    void unlock() {
        if (word_.exchange(0, std::memory_order_release) == 2)
            raw(SYS_futex, &word_, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }
    // In the child of a fork: whoever held it does not exist here.
    void reset() { word_.store(0, std::memory_order_relaxed); }

  private:
    std::atomic<int> word_{0};
};

class Locked {
  public:
    explicit Locked(FutexLock& lock) : lock_(lock) { lock_.lock(); }
    ~Locked() { lock_.unlock(); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

  private:
    SignalsBlocked blocked_;
    FutexLock& lock_;
};

}  // namespace board::preload
