#include "board/daemon/camera/payloadfaults.h"

namespace board {

void PayloadFaults::plan(PayloadFault fault, unsigned count, std::uint32_t seed) {
    fault_ = fault;
    frames_ = count;
    random_.seed(seed);
}

void PayloadFaults::mix(unsigned perMille, std::uint32_t seed) {
    perMille_ = perMille;
    random_.seed(seed);
}

std::optional<PayloadFault> PayloadFaults::next(std::uint32_t fourcc) {
    if (frames_ > 0) {
        --frames_;
        if (canHave(fourcc, fault_))
            return fault_;
        return std::nullopt;
    }
    if (perMille_ == 0 || random_() % 1000 >= perMille_)
        return std::nullopt;
    for (;;) {
        const auto fault = PayloadFault(random_() % payloadFaultCount);
        if (canHave(fourcc, fault))
            return fault;
    }
}

}  // namespace board
