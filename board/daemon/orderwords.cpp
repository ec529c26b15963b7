#include "board/daemon/orderwords.h"

#include <cstring>
#include <sstream>

namespace board {

const wire::OrderWord* findOrderWord(const std::string& name) {
    for (const wire::OrderWord& word : wire::orderWords)
        if (name == word.name)
            return &word;
    return nullptr;
}

std::vector<OrderField> orderFields(const wire::OrderWord& word) {
    std::vector<OrderField> fields;
    std::istringstream stream(word.fields);
    for (std::string text; stream >> text;) {
        OrderField field;
        field.optional = text.front() == '[';
        if (field.optional)
            text = text.substr(1, text.size() - 2);
        if (std::strchr("#@%", text.front()) != nullptr) {
            field.kind = text.front();
            text.erase(0, 1);
        }
        field.name = text;
        fields.push_back(field);
    }
    return fields;
}

}  // namespace board
