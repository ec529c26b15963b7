// Orders to the board, as the console gives them.
#pragma once

#include <optional>
#include <set>
#include <string>

namespace board::console {

// Any thread; each order takes a connection of its own, and at most ten seconds.
class OrderClient {
  public:
    // `folder`: the board's run folder.
    explicit OrderClient(std::string folder) : folder_(std::move(folder)) {}

    // The answer's line, good or bad; an answer in the board's place when it does not come.
    // `line` is a composed order.
    std::string ask(const std::string& line) const;
    // An order without fields; nothing unless its answer is good.
    std::optional<std::string> askFor(const std::string& word) const;
    // The run so far as a scenario file; nothing when the board does not give it.
    std::optional<std::string> session() const;
    // Names of cameras, displays, sound cards and input devices; empty when the board does not say.
    std::set<std::string> catalogueNames() const;

  private:
    std::string folder_;
};

// Whether an answer says that the order was done.
bool isGood(const std::string& answer);
// {"ok": false, "error": ...}
std::string refusal(const std::string& error);

}  // namespace board::console
