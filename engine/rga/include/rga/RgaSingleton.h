// One object of a class in the whole process, made when it is first asked for.
#pragma once

#include <mutex>

template <typename T>
class Singleton {
  public:
    // Never destroyed: programs hold references to it in objects that end after main.
    static T& getInstance() {
        const std::lock_guard<std::mutex> lock(sLock);
        if (sInstance == nullptr) {
            sInstance = new T();
        }
        return *sInstance;
    }
    static bool hasInstance() {
        const std::lock_guard<std::mutex> lock(sLock);
        return sInstance != nullptr;
    }
    Singleton(const Singleton&) = delete;
    Singleton& operator=(const Singleton&) = delete;

  protected:
    Singleton() = default;
    ~Singleton() = default;

  private:
    static std::mutex sLock;
    static T* sInstance;
};

// In exactly one source file for each T. A type takes no parentheses around it.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define RGA_SINGLETON_STATIC_INSTANCE(T) \
    template <>                          \
    std::mutex Singleton<T>::sLock{};    \
    template <>                          \
    T* Singleton<T>::sInstance(nullptr)
// NOLINTEND(bugprone-macro-parentheses)
