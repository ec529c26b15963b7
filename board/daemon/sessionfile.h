// A run as a scenario: orders with their times, and names of files that mean the same from
// anywhere.
#pragma once

#include "board/daemon/jsonreader.h"
#include "board/daemon/scenario.h"
#include "board/protocol/orders.h"

#include <cstddef>
#include <string>
#include <vector>

namespace board {

// The most that a board takes down of a run: such a file can be read again.
constexpr std::size_t mostSessionBytes = 3u << 20;

// Strict: times do not decrease, every entry is an order that changes something, with its fields.
// Paths are relative to the scenario's file. Throws std::runtime_error with one line.
std::vector<TimedOrder> readTimedOrders(const JsonPlace& place);

// An order's members with paths made absolute, `folder` being what they are relative to (empty: the
// working folder).
std::string plainOrder(JsonObject& order, const wire::OrderWord& word, const std::string& folder);

// {"at_ms": N, "order": ..., fields}: what readTimedOrders reads.
std::string timedOrderText(const TimedOrder& order);

// The scenario at `place` as one line of JSON that can lie anywhere: names and descriptions written
// in place stay, paths are absolute. Without `speed` and `orders`.
std::string movableScenario(const JsonPlace& place);

}  // namespace board
