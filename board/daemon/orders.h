// Orders to the board: what each word does. Who sends them is orderserver.h's business.
#pragma once

#include "board/daemon/jsonfields.h"
#include "board/daemon/jsonreader.h"

#include <functional>
#include <map>
#include <string>

namespace board {

struct OrderResult {
    std::string error;  // one line; empty on success
    JsonFields fields;  // on success

    std::string line() const;  // as JSON, with the line end
};

// Called once, on the loop's thread, at once or later.
using OrderDone = std::function<void(const OrderResult&)>;

class Orders {
  public:
    // `order` has no other fields than the word's in protocol/orders.h, and all that are required;
    // it does not outlive the call. A std::exception is the order's error.
    using Handler = std::function<void(JsonObject& order, const OrderDone& done)>;

    // `name` is one of protocol/orders.h.
    void add(const std::string& name, Handler handler);
    // The same for an order that is done when `run` returns.
    void addImmediate(const std::string& name, std::function<JsonFields(JsonObject& order)> run);
    // One line without its end. `done` is called in any case.
    void run(const std::string& line, const OrderDone& done) const;

  private:
    std::map<std::string, Handler> handlers_;
};

}  // namespace board
