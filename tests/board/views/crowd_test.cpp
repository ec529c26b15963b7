// Bad and many clients: the board answers, the application loses nothing.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <random>
#include <thread>

#include "tests/board/views/viewclient.h"
#include "tests/support/application.h"
#include "tests/support/lateness.h"
#include "tests/support/scenarios.h"

namespace {

using support::Application;
using support::benchScenario;
using support::Board;
using support::Milliseconds;
using views::Packet;
using views::ViewClient;
using Clients = std::vector<std::unique_ptr<ViewClient>>;
namespace wire = board::wire;

constexpr wire::ViewKind kinds[] = {wire::ViewKind::screen, wire::ViewKind::camera,
                                    wire::ViewKind::sound, wire::ViewKind::flips};

constexpr int attempts = 5;

class Crowd : public testing::Test {
  protected:
    Crowd() { application_.expectPlaying(); }

    std::unique_ptr<ViewClient> connect(wire::ViewKind kind) {
        return std::make_unique<ViewClient>(board_.folder(), kind);
    }

    // While `work` runs, and one more second of pictures, no frame is lost and the board hardly
    // works. Where the machine did not keep time it is done again; a machine that never did says
    // nothing about frames.
    void losesNothingWhile(const std::function<void()>& work) {
        for (int attempt = 0; attempt < attempts; ++attempt) {
            const std::uint64_t lostBefore = board_.camera().lost;
            board_.resetFigures();
            const support::LatenessProbe probe;
            const double cpuBefore = board_.daemon().figures().cpu_s;
            const auto began = support::Clock::now();
            ASSERT_NO_FATAL_FAILURE(work());
            ASSERT_NO_FATAL_FAILURE(letPicturesPass(30));
            const std::chrono::duration<double> took = support::Clock::now() - began;
            const double cpu = (board_.daemon().figures().cpu_s - cpuBefore) / took.count();
            EXPECT_LT(cpu, 0.5) << "of a core";
            const support::DisplayFigures display = board_.display();
            EXPECT_EQ(display.outOfOrder, 0u);
            const std::uint64_t lost = board_.camera().lost - lostBefore;
            if (lost == 0 && display.skipped == 0)
                return;
            if (probe.worst_ms() <= support::tolerableLateness_ms) {
                FAIL() << lost << " frames found no buffer, " << display.skipped
                       << " were not shown";
            }
        }
        std::printf("the machine was never on time: frames are not judged\n");
    }
    void letPicturesPass(unsigned count) {
        const std::uint64_t shown = board_.display().shown;
        ASSERT_TRUE(board_.waitForDisplay(
            [&](const auto& now) { return now.shown >= shown + count; }, Milliseconds(20000)));
    }
    // That an ordinary client is served.
    void expectServed() {
        const auto client = connect(wire::ViewKind::screen);
        client->grant();
        EXPECT_TRUE(client->receive());
    }

    Board board_{benchScenario("small")};
    Application application_{board_};
};

TEST_F(Crowd, ClientsThatReadNothing) {
    Clients clients;
    losesNothingWhile([&] {
        for (const wire::ViewKind kind : kinds) {
            for (int i = 0; i < 3; ++i) {
                clients.push_back(connect(kind));
                if (kind == wire::ViewKind::screen || kind == wire::ViewKind::camera)
                    clients.back()->grant(wire::maxViewCredit);
            }
        }
        letPicturesPass(60);
    });
    expectServed();
}

// Never more than allowed at a time, and never a look at what came: as much as the socket holds.
TEST_F(Crowd, CreditWithoutReadingEnds) {
    losesNothingWhile([&] {
        Clients clients;
        clients.push_back(connect(wire::ViewKind::screen));
        clients.push_back(connect(wire::ViewKind::camera));
        for (const auto& client : clients)
            ASSERT_TRUE(client->grant(wire::maxViewCredit));
        unsigned granted = wire::maxViewCredit;
        for (bool taken = true; taken && granted < 1000; ++granted) {
            letPicturesPass(1);
            taken = false;
            for (const auto& client : clients)
                taken = client->grant() || taken;
        }
        EXPECT_LT(granted, 200u);
        for (const auto& client : clients)
            EXPECT_TRUE(client->hungUp());
    });
}

TEST_F(Crowd, AllCreditIsAnswered) {
    for (const wire::ViewKind kind : {wire::ViewKind::screen, wire::ViewKind::camera}) {
        const auto client = connect(kind);
        ASSERT_TRUE(client->grant(wire::maxViewCredit));
        letPicturesPass(wire::maxViewCredit + 5);
        for (unsigned i = 0; i < wire::maxViewCredit; ++i)
            EXPECT_TRUE(client->receive()) << i;
        EXPECT_TRUE(client->grant());
        EXPECT_TRUE(client->receive());
    }
}

TEST_F(Crowd, TooMuchCreditEnds) {
    board_.stallCamera(true);
    const auto client = connect(wire::ViewKind::camera);
    client->grant(wire::maxViewCredit);
    EXPECT_FALSE(client->hungUp(Milliseconds(200)));
    client->grant();
    EXPECT_TRUE(client->hungUp());
}

TEST_F(Crowd, RubbishEnds) {
    losesNothingWhile([&] {
        std::mt19937 random(11);
        for (int round = 0; round < 300; ++round) {
            ViewClient client(board_.folder());
            if (round % 2 == 0)
                client.ask(kinds[round / 2 % 4]);
            std::vector<std::uint8_t> packet(random() % 3000 + 2);
            for (auto& byte : packet)
                byte = std::uint8_t(random());
            client.send(packet.data(), packet.size());
            EXPECT_TRUE(client.hungUp()) << round;
        }
    });
    for (const std::uint32_t kind : {0u, 5u, 0xffffffffu}) {
        ViewClient client(board_.folder());
        client.ask(wire::ViewKind(kind));
        EXPECT_TRUE(client.hungUp()) << kind;
    }
    ViewClient future(board_.folder());
    future.ask(wire::ViewKind::flips, wire::viewVersion + 1);
    EXPECT_TRUE(future.hungUp());
    ViewClient talkative(board_.folder(), wire::ViewKind::flips);
    talkative.grant();
    EXPECT_TRUE(talkative.hungUp());
    expectServed();
}

TEST_F(Crowd, ClientsThatDie) {
    const unsigned before = board_.daemon().figures().descriptors;
    losesNothingWhile([&] {
        for (int round = 0; round < 200; ++round) {
            const auto client = connect(kinds[round % 4]);
            client->grant(round % 4 < 2 ? round % wire::maxViewCredit : 0);
            if (round % 8 < 2)
                client->receive(Milliseconds(20));
        }
    });
    expectServed();
    // Nothing of them is left.
    const auto deadline = support::Clock::now() + support::scaled(Milliseconds(10000));
    while (board_.daemon().figures().descriptors > before + 40 && support::Clock::now() < deadline)
        letPicturesPass(1);
    EXPECT_LE(board_.daemon().figures().descriptors, before + 40)
        << "the frame buffers' own, opened for reading, and no more";
}

TEST_F(Crowd, TwentyClientsAtOnce) {
    losesNothingWhile([&] {
        std::atomic<bool> stop{false};
        std::atomic<unsigned> pictures{0}, payloads{0}, flips{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 20; ++i) {
            threads.emplace_back([&, kind = kinds[i % 4]] {
                ViewClient client(board_.folder(), kind);
                const bool credit =
                    kind == wire::ViewKind::screen || kind == wire::ViewKind::camera;
                if (credit)
                    client.grant();
                while (!stop) {
                    const auto packet = client.receive(Milliseconds(50));
                    if (!packet)
                        continue;
                    if (kind == wire::ViewKind::screen)
                        ++pictures;
                    else if (kind == wire::ViewKind::camera)
                        ++payloads;
                    else
                        ++flips;
                    if (credit)
                        client.grant();
                }
            });
        }
        letPicturesPass(60);
        stop = true;
        for (std::thread& thread : threads)
            thread.join();
        // Five of each kind.
        EXPECT_GE(pictures.load(), 5 * 20u);
        EXPECT_GE(payloads.load(), 5 * 20u);
        EXPECT_GE(flips.load(), 5 * 50u);
    });
}

TEST_F(Crowd, SurplusIsTurnedAway) {
    Clients clients;
    for (unsigned i = 0; i < wire::maxViewClients; ++i)
        clients.push_back(connect(wire::ViewKind::flips));
    for (const auto& client : clients)
        EXPECT_TRUE(client->receive());
    EXPECT_TRUE(ViewClient(board_.folder()).hungUp());
    clients.pop_back();
    const auto deadline = support::Clock::now() + support::scaled(Milliseconds(10000));
    bool served = false;
    while (!served && support::Clock::now() < deadline)
        served = connect(wire::ViewKind::flips)->receive().has_value();
    EXPECT_TRUE(served);
}

}  // namespace
