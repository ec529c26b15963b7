// Values by key.
#pragma once

#include <rockchip/mpp_meta.h>

#include <map>
#include <variant>

#include "engine/mpp/handle.h"

namespace mpp {

// Which type a handle in a meta was set as.
struct FrameValue {
    MppFrame handle;
};
struct PacketValue {
    MppPacket handle;
};
struct BufferValue {
    MppBuffer handle;
};

class Meta : public Counted {
  public:
    static constexpr Kind kindOf = Kind::meta;
    Meta() : Counted(kindOf) {}
    static void release(Meta* meta);

    using Value = std::variant<RK_S32, RK_S64, void*, FrameValue, PacketValue, BufferValue>;

    void set(MppMetaKey key, Value value) { values_.insert_or_assign(key, value); }
    // Null when there is none of that type.
    template <class T>
    const T* find(MppMetaKey key) const {
        const auto it = values_.find(key);
        return it != values_.end() ? std::get_if<T>(&it->second) : nullptr;
    }
    void clear() { values_.clear(); }
    int size() const { return static_cast<int>(values_.size()); }

  private:
    ~Meta() = default;
    std::map<MppMetaKey, Value> values_;
};

}  // namespace mpp
