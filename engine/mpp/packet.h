// Coded data in the program's hands.
#pragma once

#include <rockchip/mpp_packet.h>

#include <memory>

#include "engine/mpp/buffer.h"
#include "engine/mpp/meta.h"

namespace mpp {

class Packet : public Counted {
  public:
    static constexpr Kind kindOf = Kind::packet;
    Packet() : Counted(kindOf) {}
    static void release(Packet* packet);

    static constexpr RK_U32 flagEos = 0x1;
    static constexpr RK_U32 flagExtraData = 0x2;

    struct Bytes {
        const unsigned char* data = nullptr;
        std::size_t size = 0;
    };
    // From pos on, at most length bytes, never beyond the memory.
    Bytes unread() const;
    bool contains(std::size_t offset, std::size_t bytes) const {
        return data != nullptr && offset <= size && bytes <= size - offset;
    }

    unsigned char* data = nullptr;
    std::size_t size = 0;
    unsigned char* pos = nullptr;
    std::size_t length = 0;
    RK_S64 pts = 0;
    RK_S64 dts = 0;
    RK_U32 flag = 0;
    Ref<Buffer> buffer;
    Ref<Meta> meta;
    std::unique_ptr<unsigned char[]> copy;  // memory of the packet's own

  private:
    ~Packet() = default;
};

}  // namespace mpp
