// Wrappers of libc functions and what stands behind them.
#pragma once

#include <dlfcn.h>

#include <atomic>

// Defines the exported function `name` under a name of our own: libc's headers may declare it with
// attributes that do not suit a definition.
#define WRAPPER(result, name, parameters)             \
    extern "C" __attribute__((visibility("default"))) \
    result wrapped_##name parameters __asm__(#name);  \
    result wrapped_##name parameters

// The same function in the libraries that come after ours (a sanitizer's, or libc's).
#define NEXT(name) static decltype(::board::preload::nextOf(&::name)) next(#name)

// For functions that no header declares.
#define NEXT_AS(name, ...) static ::board::preload::Next<__VA_ARGS__> next(#name)

namespace board::preload {

template <typename Function>
class Next {
  public:
    constexpr explicit Next(const char* name) : name_(name) {}

    template <typename... Arguments>
    auto operator()(Arguments... arguments) {
        Function* target = target_.load(std::memory_order_relaxed);
        if (target == nullptr) {
            target = reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name_));
            target_.store(target, std::memory_order_relaxed);
        }
        return target(arguments...);
    }

  private:
    const char* name_;
    std::atomic<Function*> target_{nullptr};
};

// The bare type of a libc function: its attributes have no place in a template's argument.
template <typename Result, typename... Parameters>
Next<Result(Parameters...)> nextOf(Result (*)(Parameters...));
template <typename Result, typename... Parameters>
Next<Result(Parameters..., ...)> nextOf(Result (*)(Parameters..., ...));

}  // namespace board::preload
