// The order socket's words, taken apart (protocol/orders.h has them as texts).
#pragma once

#include "board/protocol/orders.h"

#include <string>
#include <vector>

namespace board {

struct OrderField {
    std::string name;
    bool optional = false;
    char kind = ' ';  // as in protocol/orders.h
};

// Null when there is no such word.
const wire::OrderWord* findOrderWord(const std::string& name);
std::vector<OrderField> orderFields(const wire::OrderWord& word);

}  // namespace board
