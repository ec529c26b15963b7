// Orders to the board: what each word does. Who sends them is orderserver.h's business.
#pragma once

#include "board/daemon/jsonfields.h"
#include "board/daemon/jsonreader.h"
#include "board/protocol/orders.h"

#include <functional>
#include <map>
#include <string>
#include <utility>

namespace board {

struct OrderResult {
    std::string error;  // one line; empty on success
    JsonFields fields;  // on success
    // An error, and yet something of the board had changed before it.
    bool changed = false;

    std::string line() const;  // as JSON, with the line end
};

// Called once, on the loop's thread, at once or later.
using OrderDone = std::function<void(const OrderResult&)>;

class Orders {
  public:
    // `order` has no other fields than the word's in protocol/orders.h, and all that are required;
    // it does not outlive the call. A std::exception is the order's error.
    using Handler = std::function<void(JsonObject& order, const OrderDone& done)>;

    // Told of each order that changes the board, before it runs: what it returns is called in the
    // place of `done`.
    using Observer = std::function<OrderDone(JsonObject& order, const wire::OrderWord& word,
                                             const OrderDone& done)>;

    void observe(Observer observer) { observer_ = std::move(observer); }
    // `name` is one of protocol/orders.h.
    void add(const std::string& name, Handler handler);
    // The same for an order that is done when `run` returns.
    void addImmediate(const std::string& name, std::function<JsonFields(JsonObject& order)> run);
    // One line without its end. `asker` is called in any case.
    void run(const std::string& line, const OrderDone& asker) const;

  private:
    std::map<std::string, Handler> handlers_;
    Observer observer_;
};

}  // namespace board
