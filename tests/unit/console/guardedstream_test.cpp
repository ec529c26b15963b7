// A connection's limits by themselves, on a pair of sockets.

#include "board/console/guardedstream.h"
#include "tests/support/environment.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>

namespace {

using board::console::GuardedStream;
using board::console::StreamLimits;
using support::Milliseconds;

class GuardedStreamTest : public testing::Test {
  protected:
    GuardedStreamTest() {
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, sockets_),
                  0);
    }
    ~GuardedStreamTest() override {
        ::close(sockets_[0]);
        ::close(sockets_[1]);
    }
    int ours() const { return sockets_[0]; }
    int theirs() const { return sockets_[1]; }

    StreamLimits limits_;

  private:
    int sockets_[2] = {-1, -1};
};

TEST_F(GuardedStreamTest, ReadsNoMoreThanARequestMayHave) {
    limits_.requestBytes = 100;
    const std::string sent(80, 's');
    ASSERT_EQ(::send(theirs(), sent.data(), sent.size(), 0), 80);
    GuardedStream stream(ours(), std::string(40, 'r'), limits_);
    std::string got;
    char piece[64];
    ssize_t size = 0;
    while ((size = stream.read(piece, sizeof piece)) > 0)
        got.append(piece, std::size_t(size));
    EXPECT_EQ(size, -1);
    EXPECT_EQ(got, std::string(40, 'r') + std::string(60, 's'));
}

TEST_F(GuardedStreamTest, ADripEndsTheWriteToo) {
    limits_.write = support::scaled(Milliseconds(300));
    const int small = 8192;  // room for the next piece comes often
    ASSERT_EQ(::setsockopt(ours(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small), 0);
    std::atomic<bool> end{false};
    std::thread drip([&] {
        char piece[4096];
        while (!end) {
            ::recv(theirs(), piece, sizeof piece, 0);
            std::this_thread::sleep_for(Milliseconds(10));
        }
    });
    const std::string answer(8 << 20, 'a');  // 20 s of such drips
    const auto began = support::Clock::now();
    GuardedStream stream(ours(), "", limits_);
    EXPECT_EQ(stream.write(answer.data(), answer.size()), -1);
    EXPECT_LT(support::Clock::now() - began, support::scaled(Milliseconds(5000)));
    end = true;
    drip.join();
}

TEST_F(GuardedStreamTest, TellsWhenTheOtherSideHasGone) {
    const GuardedStream stream(ours(), "", limits_);
    EXPECT_TRUE(stream.is_writable());
    ::shutdown(theirs(), SHUT_RDWR);
    EXPECT_FALSE(stream.is_writable());
}

}  // namespace
