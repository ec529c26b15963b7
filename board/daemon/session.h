// A run that can be repeated: takes down every order that changes the board, whoever gives it, and
// gives the orders of the scenario at their times. The clock of both is board time since the first
// client program connected. Loop thread only.
#pragma once

#include "board/daemon/coreboard.h"
#include "board/daemon/orders.h"
#include "board/daemon/scenario.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

namespace board {

class Session {
  public:
    // All must outlive the session; it is the observer of `orders` from now on.
    Session(CoreBoard& board, Orders& orders, const Scenario& scenario);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Gives the orders that came before the first client; `ready` is called, perhaps at once, when
    // all of them are done (the release of a key that is held is not waited for).
    void start(std::function<void()> ready);
    void firstClient();  // the clock starts

    std::size_t taken() const { return taken_.size(); }
    std::size_t toCome() const { return toCome_.size(); }
    // The run so far as a scenario, an order a line. Throws std::runtime_error when it has grown
    // longer than a scenario may be.
    std::string document() const;

  private:
    struct Taken {
        std::uint64_t number;
        std::int64_t at_ms;
        std::string text;  // as timedOrderText gives it
    };

    std::int64_t now_ms() const;
    OrderDone take(JsonObject& order, const wire::OrderWord& word, const OrderDone& done);
    void forget(std::uint64_t number);
    void give(const OrderDone& done);
    void waitForNext();

    CoreBoard& board_;
    Orders& orders_;
    const std::string start_;  // the scenario without its orders and its speed
    const std::uint32_t speed_;
    std::deque<TimedOrder> toCome_;
    std::vector<Taken> taken_;
    std::size_t takenBytes_ = 0;
    bool tooLong_ = false;
    std::uint64_t lastNumber_ = 0;
    std::int64_t planned_ms_ = -1;  // of the order that is being given; -1: it comes from outside
    std::int64_t origin_ns_ = -1;   // board time; -1: no client yet
    std::function<void()> ready_;
    unsigned early_ = 0;  // orders at 0 that are not done
};

}  // namespace board
