#include "board/daemon/reportorders.h"

#include <functional>
#include <memory>

namespace board {

namespace {

constexpr std::int64_t look_ns = 20000000;
constexpr std::int64_t patience_ns = 20000000000;  // a leak check of a large program takes seconds

// One raise at a time: the page has one place for the answer.
class Reports {
  public:
    explicit Reports(CoreBoard& board) : board_(board) {}

    void raise(std::uint32_t bits, const OrderDone& done) {
        if (busy_)
            return refuse(done, "another report is under way");
        busy_ = true;
        wire::SharedPage& page = board_.page().page();
        // The generation shares its word with the bits and starts again where it would not fit.
        generation_ = (generation_ + 1) & 0x3fffffff;
        page.leakResult.store(0);
        page.dumpRequest.store(generation_ << 2 | bits);
        wait(bits, EventLoop::now_ns() + patience_ns, done);
    }

  private:
    static void refuse(const OrderDone& done, const std::string& error) {
        OrderResult result;
        result.error = error;
        done(result);
    }

    // The page has no descriptor that would tell: look now and then.
    void wait(std::uint32_t bits, std::int64_t deadline_ns, const OrderDone& done) {
        wire::SharedPage& page = board_.page().page();
        const bool answered = page.dumpDone.load() == generation_;
        if (!answered && EventLoop::now_ns() < deadline_ns) {
            board_.loop().at(EventLoop::now_ns() + look_ns,
                             [this, bits, deadline_ns, done] { wait(bits, deadline_ns, done); });
            return;
        }
        busy_ = false;
        page.dumpRequest.store(0);
        if (!answered)
            return refuse(done, "no client answered within 20 s");
        OrderResult result;
        if ((bits & wire::dumpLeaks) != 0)
            result.fields.add("leaks", page.leakResult.load() != 0);
        done(result);
    }

    CoreBoard& board_;
    std::uint32_t generation_ = 0;
    bool busy_ = false;
};

}  // namespace

void addReportOrders(Orders& orders, CoreBoard& board) {
    const auto reports = std::make_shared<Reports>(board);
    orders.add("leak-check", [reports](JsonObject&, const OrderDone& done) {
        reports->raise(wire::dumpLeaks, done);
    });
    orders.add("coverage", [reports](JsonObject&, const OrderDone& done) {
        reports->raise(wire::dumpCoverage, done);
    });
}

}  // namespace board
