// What stands behind the void pointers of the interface: every object tells its kind, so that one
// handle passed for another is refused. Released handles are not looked up anywhere: using one is
// an error that AddressSanitizer shall see.
#pragma once

#include <rockchip/mpp_err.h>

#include <atomic>
#include <cstdint>
#include <utility>

namespace mpp {

enum class Kind : std::uint32_t {
    dead = 0,
    context = 0x6d707001,
    buffer,
    group,
    packet,
    frame,
    meta,
    task
};

class Handle {
  public:
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    Kind kind() const { return kind_; }

  protected:
    explicit Handle(Kind kind) : kind_(kind) {}
    ~Handle() { kind_ = Kind::dead; }

  private:
    Kind kind_;
};

// Lives until the last reference goes; made with one.
class Counted : public Handle {
  public:
    void retain() { references_.fetch_add(1, std::memory_order_relaxed); }
    // True when that was the last one.
    bool drop() { return references_.fetch_sub(1, std::memory_order_acq_rel) == 1; }

  protected:
    using Handle::Handle;

  private:
    std::atomic<int> references_{1};
};

// T has `static constexpr Kind kindOf` and `static void release(T*)`.
template <class T>
T* as(void* pointer) {
    auto* handle = static_cast<Handle*>(pointer);
    return handle != nullptr && handle->kind() == T::kindOf ? static_cast<T*>(handle) : nullptr;
}

template <class T>
void* handleOf(T* object) {
    return static_cast<Handle*>(object);
}

// Why as<T>() gave nothing.
inline MPP_RET refusal(const void* pointer) {
    return pointer == nullptr ? MPP_ERR_NULL_PTR : MPP_ERR_VALUE;
}

// A counted reference.
template <class T>
class Ref {
  public:
    Ref() = default;
    // Takes a reference of its own.
    explicit Ref(T* object) : object_(object) {
        if (object_ != nullptr) {
            object_->retain();
        }
    }
    // Takes over the caller's.
    static Ref adopt(T* object) {
        Ref ref;
        ref.object_ = object;
        return ref;
    }
    Ref(const Ref& other) : Ref(other.object_) {}
    Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    Ref& operator=(Ref other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~Ref() {
        if (object_ != nullptr) {
            T::release(object_);
        }
    }
    T* get() const { return object_; }
    T* operator->() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }
    // Hands the reference to the caller.
    T* detach() { return std::exchange(object_, nullptr); }

  private:
    T* object_ = nullptr;
};

}  // namespace mpp
