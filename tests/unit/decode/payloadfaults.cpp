#include "tests/unit/decode/payloadfaults.h"

using streams::Bytes;

Bytes PayloadFaults::damaged(Bytes payload) {
    for (std::size_t faults = 1 + below(2); faults > 0; --faults) {
        damage(payload, below(10));
    }
    return payload;
}

void PayloadFaults::flipBits(Bytes& payload) {
    for (std::size_t count = 1 + below(20); count > 0 && !payload.empty(); --count) {
        payload[below(payload.size())] ^= static_cast<std::uint8_t>(1U << below(8));
    }
}

Bytes PayloadFaults::noise(std::size_t bytes) {
    Bytes result(bytes);
    for (std::uint8_t& byte : result) {
        byte = static_cast<std::uint8_t>(random_());
    }
    return result;
}

void PayloadFaults::damage(Bytes& payload, std::size_t fault) {
    const auto at = [&] {
        return payload.begin() + static_cast<std::ptrdiff_t>(below(payload.size() + 1));
    };
    switch (fault) {
        case 0:
        case 1:
            payload.erase(at(), payload.end());
            break;
        case 2:
            payload.erase(payload.begin(), at());
            break;
        case 3:
            payload = streams::withoutHuffmanTables(payload);
            break;
        case 4: {
            const Bytes before = noise(1 + below(300));
            payload.insert(payload.begin(), before.begin(), before.end());
            break;
        }
        case 5: {
            const Bytes after = noise(1 + below(3000));
            payload.insert(payload.end(), after.begin(), after.end());
            break;
        }
        case 6:
            payload = streams::withSize(payload, static_cast<unsigned>(below(0x10000)),
                                        static_cast<unsigned>(below(0x10000)));
            break;
        case 7:
            if (below(4) == 0) {
                payload.clear();
            } else {
                payload = noise(below(5000));
            }
            break;
        case 8:
            if (below(10) == 0) {
                payload.resize(1000001 + below(2000000));
            }
            break;
        default:
            flipBits(payload);
    }
}
