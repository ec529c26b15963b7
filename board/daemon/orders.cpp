#include "board/daemon/orders.h"

#include "board/daemon/orderwords.h"

namespace board {

namespace {

// Asks for each of the word's fields, so that JsonObject::finish finds the unknown ones.
void checkFields(JsonObject& order, const wire::OrderWord& word) {
    for (const OrderField& field : orderFields(word))
        if (!order.has(field.name.c_str()) && !field.optional)
            order.get(field.name.c_str());
    order.finish();
}

const wire::OrderWord& findWord(const JsonPlace& place) {
    const std::string name = place.text(64);
    if (const wire::OrderWord* word = findOrderWord(name))
        return *word;
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

void Orders::run(const std::string& line, const OrderDone& asker) const {
    OrderDone done = asker;
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
        if (word.changes && observer_)
            done = observer_(order, word, asker);
        handler->second(order, done);
        return;
    } catch (const std::exception& error) {
        failure.error = error.what();
    }
    done(failure);
}

}  // namespace board
