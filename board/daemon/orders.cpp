#include "board/daemon/orders.h"

#include "board/protocol/orders.h"

#include <sstream>

namespace board {

namespace {

// Asks for each of the word's fields, so that JsonObject::finish finds the unknown ones.
void checkFields(JsonObject& order, const wire::OrderWord& word) {
    std::istringstream fields(word.fields);
    for (std::string field; fields >> field;) {
        const bool optional = field.front() == '[';
        const std::size_t first = field.find_first_not_of("[#@%");
        const std::string name = field.substr(first, field.find(']') - first);
        if (!order.has(name.c_str()) && !optional)
            order.get(name.c_str());
    }
    order.finish();
}

const wire::OrderWord& findWord(const JsonPlace& place) {
    const std::string name = place.text(64);
    for (const wire::OrderWord& word : wire::orderWords)
        if (name == word.name)
            return word;
    place.fail("unknown order \"" + name + "\"; `boardctl help` lists them");
}

}  // namespace

std::string OrderResult::line() const {
    if (!error.empty())
        return JsonFields().add("ok", false).add("error", error).object() + "\n";
    const std::string members = fields.object();
    return "{\"ok\": true" + (members == "{}" ? "}" : ", " + members.substr(1)) + "\n";
}

void Orders::add(const std::string& name, Handler handler) {
    handlers_[name] = std::move(handler);
}

void Orders::addImmediate(const std::string& name,
                          std::function<JsonFields(JsonObject& order)> run) {
    add(name, [run = std::move(run)](JsonObject& order, const OrderDone& done) {
        OrderResult result;
        result.fields = run(order);
        done(result);
    });
}

void Orders::run(const std::string& line, const OrderDone& done) const {
    OrderResult failure;
    try {
        rapidjson::Document document;
        parseJson(line, "order", document);
        JsonObject order(JsonPlace(document, "order"));
        const wire::OrderWord& word = findWord(order.get("order"));
        checkFields(order, word);
        const auto handler = handlers_.find(word.name);
        if (handler == handlers_.end())
            throw std::runtime_error(std::string("this board does not serve \"") + word.name +
                                     "\"");
        handler->second(order, done);
        return;
    } catch (const std::exception& error) {
        failure.error = error.what();
    }
    done(failure);
}

}  // namespace board
