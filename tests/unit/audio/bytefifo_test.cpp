// The FIFO of sound bytes.
#include "control/audio/bytefifo.h"

#include "tests/unit/task/waiting.h"

#include <deque>
#include <random>

namespace {

TEST(ByteFifo, GivesBackWhatWasPutIn) {
    ByteFifo fifo;
    std::deque<unsigned char> model;
    std::minstd_rand random(7);
    unsigned char next = 0;
    for (int step = 0; step < 20000; ++step) {
        std::vector<unsigned char> bytes(random() % 300);
        if (random() % 2 == 0) {
            for (unsigned char& byte : bytes) {
                byte = next++;
                model.push_back(byte);
            }
            fifo.push(bytes.data(), static_cast<unsigned>(bytes.size()));
        } else {
            const unsigned got = fifo.pop(bytes.data(), static_cast<unsigned>(bytes.size()));
            ASSERT_EQ(got, std::min(bytes.size(), model.size()));
            ASSERT_TRUE(std::equal(bytes.begin(), bytes.begin() + got, model.begin()));
            model.erase(model.begin(), model.begin() + got);
        }
        ASSERT_EQ(fifo.length(), model.size());
    }
    fifo.clear();
    EXPECT_EQ(fifo.length(), 0U);
}

// A microsecond a piece for a small FIFO and for one of 64 MB: what stays behind is not moved.
TEST(ByteFifo, TakesFromALongOneAsFastAsFromAShortOne) {
    const auto timeFor = [](std::size_t held) {
        ByteFifo fifo;
        const std::vector<unsigned char> block(1 << 20);
        for (std::size_t i = 0; i < held; i += block.size()) {
            fifo.push(block.data(), static_cast<unsigned>(block.size()));
        }
        std::vector<unsigned char> piece(64);
        const auto start = Clock::now();
        for (int i = 0; i < 1000; ++i) {
            fifo.pop(piece.data(), 64);
        }
        return millisecondsSince(start);
    };
    // Moving 64 MB a thousand times takes seconds.
    EXPECT_LT(timeFor(64U << 20), 20 * timeFor(1U << 20) + 100);
}

// Bytes taken do not pile up before the front.
TEST(ByteFifo, SteadyTrafficDoesNotGrow) {
    ByteFifo fifo;
    std::vector<unsigned char> period(4096);
    for (int i = 0; i < 9; ++i) {
        fifo.push(period.data(), 4096);
    }
    const auto start = Clock::now();
    for (int i = 0; i < 100000; ++i) {
        fifo.push(period.data(), 4096);
        ASSERT_EQ(fifo.pop(period.data(), 4096), 4096U);
    }
    EXPECT_EQ(fifo.length(), 9U * 4096);
    EXPECT_LT(millisecondsSince(start), 20000);
}

}  // namespace
