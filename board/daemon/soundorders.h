// Orders that concern the sound cards.
#pragma once

#include "board/daemon/orders.h"
#include "board/daemon/rig.h"

namespace board {

// The rig must outlive `orders`.
void addSoundOrders(Orders& orders, Rig& rig);

// The card that "microphone" or "output" stands for. Throws std::runtime_error when there is none.
SoundCard& soundCardOf(const JsonPlace& device, Rig& rig);

// What a card counted.
JsonFields soundFigures(const SoundCard& card);

}  // namespace board
