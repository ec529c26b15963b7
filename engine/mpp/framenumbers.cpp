#include "engine/mpp/framenumbers.h"

#include <algorithm>
#include <vector>

namespace mpp {
namespace {

constexpr std::size_t longestHeader = 2048;

// Reads a NAL unit's bits; behind its end everything is 0 and fine() is false.
class Bits {
  public:
    // Takes out the bytes that keep start codes from appearing. The NAL unit's header is skipped.
    Bits(const std::uint8_t* nal, std::size_t size) {
        const std::size_t end = std::min(size, longestHeader);
        int zeros = 0;
        for (std::size_t i = 1; i < end; ++i) {
            if (zeros >= 2 && nal[i] == 3) {
                zeros = 0;
                continue;
            }
            zeros = nal[i] == 0 ? zeros + 1 : 0;
            bytes_.push_back(nal[i]);
        }
    }

    bool fine() const { return at_ <= bytes_.size() * 8; }
    std::uint32_t bit() {
        const std::size_t at = at_++;
        return at / 8 < bytes_.size() ? bytes_[at / 8] >> (7 - at % 8) & 1U : 0U;
    }
    std::uint32_t bits(int count) {
        std::uint32_t value = 0;
        for (int i = 0; i < count; ++i) {
            value = value << 1 | bit();
        }
        return value;
    }
    // Exp-Golomb codes.
    std::uint32_t number() {
        int zeros = 0;
        while (zeros < 31 && fine() && bit() == 0) {
            ++zeros;
        }
        return (1U << zeros) - 1 + bits(zeros);
    }
    int signedNumber() {
        const std::uint32_t code = number();
        const int half = static_cast<int>((code + 1) / 2);
        return code % 2 != 0 ? half : -half;
    }

  private:
    std::vector<std::uint8_t> bytes_;
    std::size_t at_ = 0;
};

bool hasChromaFormat(std::uint32_t profile) {
    constexpr std::array<std::uint32_t, 13> profiles{100, 110, 122, 244, 44,  83, 86,
                                                     118, 128, 138, 139, 134, 135};
    return std::find(profiles.begin(), profiles.end(), profile) != profiles.end();
}

void skipScalingLists(Bits& bits, int count) {
    for (int list = 0; list < count && bits.fine(); ++list) {
        if (bits.bit() == 0) {
            continue;
        }
        const int size = list < 6 ? 16 : 64;
        int last = 8;
        int next = 8;
        for (int i = 0; i < size && next != 0; ++i) {
            next = (last + bits.signedNumber() + 256) % 256;
            last = next == 0 ? last : next;
        }
    }
}

void skipPictureOrder(Bits& bits) {
    const std::uint32_t type = bits.number();
    if (type == 0) {
        bits.number();
    } else if (type == 1) {
        bits.bit();
        bits.number();
        bits.number();
        for (std::uint32_t left = bits.number(); left > 0 && bits.fine(); --left) {
            bits.number();
        }
    }
}

}  // namespace

void FrameNumbers::takeSequence(const std::uint8_t* nal, std::size_t size) {
    Bits bits(nal, size);
    const std::uint32_t profile = bits.bits(8);
    bits.bits(16);  // constraints, level
    const std::uint32_t id = bits.number();
    Sequence sequence;
    if (hasChromaFormat(profile)) {
        const std::uint32_t chroma = bits.number();
        sequence.separatePlanes = chroma == 3 && bits.bit() != 0;
        bits.number();  // depths
        bits.number();
        bits.bit();
        if (bits.bit() != 0) {
            skipScalingLists(bits, chroma == 3 ? 12 : 8);
        }
    }
    sequence.numberBits = static_cast<int>(std::min(bits.number(), 12U)) + 4;
    skipPictureOrder(bits);
    bits.number();  // reference pictures
    sequence.gapsAllowed = bits.bit() != 0;
    bits.number();  // width
    bits.number();  // height
    sequence.framesOnly = bits.bit() != 0;
    sequence.known = bits.fine();
    if (id < sequences_.size() && sequence.known) {
        sequences_[id] = sequence;
    }
}

void FrameNumbers::takePicture(const std::uint8_t* nal, std::size_t size) {
    Bits bits(nal, size);
    const std::uint32_t id = bits.number();
    const std::uint32_t sequence = bits.number();
    if (bits.fine() && id < sequenceOf_.size() && sequence < sequences_.size()) {
        sequenceOf_[id] = static_cast<std::uint8_t>(sequence);
    }
}

bool FrameNumbers::checkSlice(const std::uint8_t* nal, std::size_t size) {
    Bits bits(nal, size);
    bits.number();  // first macroblock
    bits.number();  // type
    const std::uint32_t picture = bits.number();
    if (!bits.fine() || picture >= sequenceOf_.size()) {
        return false;
    }
    const Sequence& sequence = sequences_[sequenceOf_[picture]];
    if (!sequence.known) {
        return false;
    }
    if (sequence.separatePlanes) {
        bits.bits(2);
    }
    const std::uint32_t number = bits.bits(sequence.numberBits);
    const bool field = !sequence.framesOnly && bits.bit() != 0;
    const std::uint32_t next = (last_ + 1) % (1U << sequence.numberBits);
    const bool startsAnew = (nal[0] & 0x1f) == 5;
    // Only a frame's second field has the number of what came before it.
    const bool follows = number == next || (field && number == last_);
    const bool gap = known_ && !startsAnew && !sequence.gapsAllowed && !follows;
    const bool referredTo = (nal[0] & 0x60) != 0;
    if (referredTo) {
        known_ = true;
        last_ = number;
    }
    return gap;
}

bool FrameNumbers::missingBefore(const AccessUnit& unit) {
    const std::uint8_t* data = unit.bytes.data();
    const std::size_t size = unit.bytes.size();
    for (std::size_t i = 0; i + 4 < size; ++i) {
        if (data[i] != 0 || data[i + 1] != 0 || data[i + 2] != 1) {
            continue;
        }
        const std::uint8_t* nal = data + i + 3;
        const std::size_t rest = size - i - 3;
        switch (nal[0] & 0x1f) {
            case 7:
                takeSequence(nal, rest);
                break;
            case 8:
                takePicture(nal, rest);
                break;
            case 1:
            case 2:
            case 5:
                return checkSlice(nal, rest);  // the others of the picture say the same
            default:
                break;
        }
    }
    return false;
}

}  // namespace mpp
