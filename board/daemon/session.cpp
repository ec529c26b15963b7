#include "board/daemon/session.h"

#include "board/daemon/sessionfile.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace board {

namespace {

constexpr std::int64_t ms_ns = 1000000;

bool isHold(const std::string& order) {
    return order.compare(0, 16, R"({"order": "hold")") == 0;
}

}  // namespace

Session::Session(CoreBoard& board, Orders& orders, const Scenario& scenario)
    : board_(board),
      orders_(orders),
      start_(scenario.document),
      speed_(scenario.speed),
      toCome_(scenario.orders.begin(), scenario.orders.end()) {
    orders_.observe([this](JsonObject& order, const wire::OrderWord& word, const OrderDone& done) {
        return take(order, word, done);
    });
}

std::int64_t Session::now_ms() const {
    if (origin_ns_ < 0)
        return 0;
    return (board_.clock().now_ns() - origin_ns_) / ms_ns;
}

OrderDone Session::take(JsonObject& order, const wire::OrderWord& word, const OrderDone& done) {
    TimedOrder timed;
    // A repeated order keeps its time however late the machine is, but orders stay in sequence.
    timed.at_ms = planned_ms_ >= 0 ? planned_ms_ : now_ms();
    if (!taken_.empty())
        timed.at_ms = std::max(timed.at_ms, taken_.back().at_ms);
    timed.order = plainOrder(order, word, "");
    const std::string text = timedOrderText(timed);
    const std::uint64_t number = ++lastNumber_;
    tooLong_ = tooLong_ || takenBytes_ + text.size() > mostSessionBytes;
    if (!tooLong_) {
        takenBytes_ += text.size();
        taken_.push_back({number, timed.at_ms, text});
    }
    return [this, number, done](const OrderResult& result) {
        if (!result.error.empty() && !result.changed)
            forget(number);
        done(result);
    };
}

void Session::forget(std::uint64_t number) {
    const auto found = std::find_if(taken_.rbegin(), taken_.rend(),
                                    [&](const Taken& taken) { return taken.number == number; });
    if (found == taken_.rend())
        return;
    takenBytes_ -= found->text.size();
    taken_.erase(std::next(found).base());
}

void Session::give(const OrderDone& done) {
    const TimedOrder timed = std::move(toCome_.front());
    toCome_.pop_front();
    planned_ms_ = timed.at_ms;
    orders_.run(timed.order, [this, timed, done](const OrderResult& result) {
        if (!result.error.empty())
            board_.log("the scenario's " + timedOrderText(timed) + " was refused: " + result.error);
        done(result);
    });
    planned_ms_ = -1;
}

void Session::start(std::function<void()> ready) {
    ready_ = std::move(ready);
    const auto finished = [this](const OrderResult&) {
        if (--early_ == 0)
            std::exchange(ready_, nullptr)();
    };
    ++early_;  // until all are given
    while (!toCome_.empty() && toCome_.front().at_ms == 0) {
        if (isHold(toCome_.front().order)) {
            give([](const OrderResult&) {});
            continue;
        }
        ++early_;
        give(finished);
    }
    finished({});
}

void Session::firstClient() {
    origin_ns_ = board_.clock().now_ns();
    waitForNext();
}

void Session::waitForNext() {
    if (toCome_.empty())
        return;
    const std::int64_t due_ns = origin_ns_ + toCome_.front().at_ms * ms_ns;
    board_.loop().at(board_.clock().toMachine(due_ns), [this] {
        give([](const OrderResult&) {});
        waitForNext();
    });
}

std::string Session::document() const {
    if (start_.empty())
        throw std::runtime_error("this board was not started from a scenario file");
    if (tooLong_)
        throw std::runtime_error("the orders of this run are longer than " +
                                 std::to_string(mostSessionBytes >> 20) +
                                 " MB and were not all taken down");
    std::string text = start_.substr(0, start_.size() - 1);
    text += ",\n\"speed\": " + std::to_string(speed_) + ",\n\"orders\": [";
    const char* separator = "\n  ";
    for (const Taken& taken : taken_) {
        text += separator + taken.text;
        separator = ",\n  ";
    }
    return text + "\n]}\n";
}

}  // namespace board
