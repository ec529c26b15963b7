#include "board/media/packetloop.h"

#include <algorithm>
#include <utility>

namespace board {

PacketLoop::PacketLoop(std::uint32_t length, unsigned parameterSetsEvery, bool marked)
    : length_(length), parameterSetsEvery_(parameterSetsEvery), marked_(marked) {}

void PacketLoop::add(MediaPacket packet) {
    const std::lock_guard<std::mutex> guard(lock_);
    keysUpTo_.push_back(keys_);
    keys_ += packet.key ? 1 : 0;
    packets_.push_back(std::move(packet));
}

bool PacketLoop::has(std::uint32_t index) const {
    const std::lock_guard<std::mutex> guard(lock_);
    return index % length_ < packets_.size();
}

bool PacketLoop::sendsParameterSets(std::uint32_t index) const {
    const std::uint32_t place = index % length_;
    if (!packets_[place].key)
        return false;
    // All key frames are known when the first round is over.
    const std::uint64_t before =
        std::uint64_t(index / length_) * (index < length_ ? 0 : keys_) + keysUpTo_[place];
    return before == 0 || (parameterSetsEvery_ != 0 && before % parameterSetsEvery_ == 0);
}

std::size_t PacketLoop::compose(std::uint32_t index, const Stamp& /*stamp*/,
                                std::uint8_t* destination, std::size_t capacity) const {
    const std::lock_guard<std::mutex> guard(lock_);
    if (index % length_ >= packets_.size())
        return 0;
    const MediaPacket& packet = packets_[index % length_];
    std::size_t length = 0;
    const auto append = [&](const std::vector<std::uint8_t>& bytes) {
        if (length < capacity)
            std::copy_n(bytes.data(), std::min(bytes.size(), capacity - length),
                        destination + length);
        length += bytes.size();
    };
    if (sendsParameterSets(index))
        append(packet.parameterSets);
    append(packet.bytes);
    return length;
}

std::optional<LoopPlace> PacketLoop::place(std::uint32_t index) const {
    const std::lock_guard<std::mutex> guard(lock_);
    const std::uint32_t place = index % length_;
    if (!marked_ || place >= packets_.size())
        return std::nullopt;
    return LoopPlace{packets_[place].shown, std::int32_t(packets_[place].shown - place)};
}

}  // namespace board
