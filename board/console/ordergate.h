// Which orders the page may give, and what they may say.
#pragma once

#include <rapidjson/document.h>

#include <functional>
#include <set>
#include <stdexcept>
#include <string>

namespace board::console {

// The order is not one that the page may give; what() is one line.
class OrderRefused : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Nothing of a request goes on as it came: an order is read, judged and composed anew, so that no
// path and no second order can hide in it. Numbers' ranges are the board's to check.
class OrderGate {
  public:
    // `names`: those of the board's catalogue, asked for when an order names a description; any
    // thread.
    explicit OrderGate(std::function<std::set<std::string>()> names) : names_(std::move(names)) {}

    // One order as the order socket takes it, with the line end. Throws OrderRefused.
    std::string compose(const std::string& body) const;

    // Words of protocol/orders.h.
    static bool allows(const std::string& word);

  private:
    std::string description(const std::string& word, const rapidjson::Value& value) const;

    std::function<std::set<std::string>()> names_;
};

}  // namespace board::console
