// What a client of the screen and of the flips sees while the shipped application plays.

#include <drm_fourcc.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <map>
#include <thread>

#include "board/media/stamp.h"
#include "tests/board/views/viewclient.h"
#include "tests/support/application.h"
#include "tests/support/cameramode.h"
#include "tests/support/scenarios.h"

namespace {

using support::Application;
using support::benchScenario;
using support::Board;
using support::Milliseconds;
using views::Packet;
using views::ViewClient;
namespace wire = board::wire;

constexpr unsigned fast = 4;  // where it is not about speed

std::uint32_t markOf(const wire::ViewPicture& picture, const std::vector<std::uint8_t>& pixels) {
    const auto stamp =
        board::readStamp(pixels.data(), 1, picture.width, picture.width, picture.height);
    return stamp ? stamp->frame : UINT32_MAX;
}

struct Seen {
    wire::ViewPicture picture;
    std::vector<std::uint8_t> pixels;
};

// Every picture that a client got while it looked on, by its frame.
class Onlooker {
  public:
    explicit Onlooker(const std::string& folder)
        : client_(folder, wire::ViewKind::screen), thread_([this] { run(); }) {}
    ~Onlooker() { finish(); }

    std::map<std::uint32_t, Seen>& finish() {
        stop_ = true;
        if (thread_.joinable())
            thread_.join();
        return seen_;
    }

  private:
    void run() {
        client_.grant();
        while (!stop_) {
            const std::optional<Packet> packet = client_.receive(Milliseconds(100));
            if (!packet)
                continue;
            const auto picture = packet->as<wire::ViewPicture>();
            std::vector<std::uint8_t> pixels = visiblePart(*packet);
            client_.grant();
            if (picture.marked == 0)
                continue;
            EXPECT_EQ(markOf(picture, pixels), picture.mark);
            seen_[picture.frame] = {picture, std::move(pixels)};
        }
    }

    ViewClient client_;
    std::map<std::uint32_t, Seen> seen_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

rapidjson::Document copyFrames(Board& board, const std::string& folder, unsigned count) {
    board.order(R"({"order":"frames","folder":")" + folder + R"(","count":)" +
                std::to_string(count) + "}");
    rapidjson::Document index;
    index.Parse(support::readFile(folder + "/index.json").c_str());
    EXPECT_TRUE(index.IsArray() && index.Size() == count);
    return index;
}

// A display whose lines are not whole 64 bytes, and a stream whose pictures are sent again and
// again.
const support::CameraMode modes[] = {
    {"WithPitch", "YUYV", 688, 384, 30, "", 688, 384, 0, "field:bars"},
    {"Looped", "MJPG", 640, 360, 30, "", 640, 360, 0, "field:bars"},
};

class ScreenView : public testing::TestWithParam<support::CameraMode> {};

TEST_P(ScreenView, IsExactlyWhatIsScannedOut) {
    const support::ModeScenario scenario(GetParam());
    Board board(scenario.path());
    Application application(board);
    application.expectPlaying();
    const std::string folder = board.folder() + "/copies";
    Onlooker onlooker(board.folder());
    const rapidjson::Document index = copyFrames(board, folder, 40);
    unsigned compared = 0;
    for (const rapidjson::Value& entry : index.GetArray()) {
        const auto found = onlooker.finish().find(entry["frame"].GetUint());
        if (found == onlooker.finish().end())
            continue;
        const Seen& seen = found->second;
        const std::string copy =
            support::readFile(folder + "/" + std::string(entry["file"].GetString()));
        ++compared;
        EXPECT_EQ(seen.picture.format, std::uint32_t(DRM_FORMAT_NV12));
        EXPECT_EQ(seen.picture.width, entry["width"].GetUint());
        EXPECT_EQ(seen.picture.height, entry["height"].GetUint());
        EXPECT_EQ(std::uint32_t(seen.picture.shown_ns / 100000), entry["time_100us"].GetUint());
        EXPECT_LT(seen.picture.taken_ns, seen.picture.shown_ns);
        EXPECT_GT(seen.picture.taken_ns, seen.picture.shown_ns - 5000000000);
        ASSERT_EQ(copy.size(), seen.pixels.size());
        EXPECT_TRUE(std::equal(seen.pixels.begin(), seen.pixels.end(),
                               reinterpret_cast<const std::uint8_t*>(copy.data())))
            << "frame " << seen.picture.frame;
    }
    // A machine that is busy elsewhere lets the client miss some.
    EXPECT_GE(compared, 10u);
    std::filesystem::remove_all(folder);
}

INSTANTIATE_TEST_SUITE_P(Modes, ScreenView, testing::ValuesIn(modes),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(ScreenView, ComesOnlyAgainstCredit) {
    Board board(benchScenario("tiny"), fast);
    Application application(board);
    application.expectPlaying();
    ViewClient client(board.folder(), wire::ViewKind::screen);
    ViewClient flips(board.folder(), wire::ViewKind::flips);
    const auto waitForFlips = [&](unsigned count) {
        for (unsigned i = 0; i < count; ++i)
            ASSERT_TRUE(flips.receive());
    };
    waitForFlips(20);
    EXPECT_FALSE(client.receive(Milliseconds(0))) << "nothing was asked for";
    client.grant(3);
    std::uint64_t last = 0;
    for (int i = 0; i < 3; ++i) {
        const auto packet = client.receive();
        ASSERT_TRUE(packet);
        EXPECT_GT(packet->as<wire::ViewPicture>().flip, last);
        last = packet->as<wire::ViewPicture>().flip;
    }
    waitForFlips(20);
    EXPECT_FALSE(client.receive(Milliseconds(0))) << "a picture beyond the credit";
}

TEST(ScreenView, StandingPictureIsSentOnce) {
    Board board(benchScenario("tiny"), fast);
    Application application(board);
    application.expectPlaying();
    board.holdFlips(true);
    const std::uint64_t standing = board.display().flips;
    ViewClient client(board.folder(), wire::ViewKind::screen);
    client.grant(2);
    const auto first = client.receive();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->as<wire::ViewPicture>().flip, standing);
    ViewClient other(board.folder(), wire::ViewKind::screen);
    other.grant();
    ASSERT_TRUE(other.receive());
    EXPECT_FALSE(client.receive(Milliseconds(0))) << "the same picture again";
    board.holdFlips(false);
    const auto second = client.receive();
    ASSERT_TRUE(second);
    EXPECT_EQ(second->as<wire::ViewPicture>().flip, standing + 1);
}

TEST(ScreenView, MemoryCannotBeWrittenTo) {
    Board board(benchScenario("tiny"), fast);
    Application application(board);
    application.expectPlaying();
    ViewClient client(board.folder(), wire::ViewKind::screen);
    client.grant();
    const auto packet = client.receive();
    ASSERT_TRUE(packet);
    ASSERT_EQ(packet->descriptors().size(), 1u);
    EXPECT_EQ(::write(packet->descriptors().front(), "x", 1), -1);
    EXPECT_EQ(errno, EBADF);
}

// Pictures until a black one; nothing when none came.
std::optional<wire::ViewPicture> waitForBlack(ViewClient& client) {
    for (;;) {
        client.grant();
        const auto packet = client.receive();
        if (!packet)
            return std::nullopt;
        const auto picture = packet->as<wire::ViewPicture>();
        if (picture.format != 0)
            continue;
        EXPECT_TRUE(packet->descriptors().empty());
        EXPECT_EQ(picture.marked, 0u);
        return picture;
    }
}

TEST(ScreenView, BlackWhenTheProgramEnds) {
    Board board(benchScenario("tiny"), fast);
    Application application(board);
    application.expectPlaying();
    ViewClient client(board.folder(), wire::ViewKind::screen);
    client.grant();
    ASSERT_TRUE(client.receive());
    application.end();
    const auto black = waitForBlack(client);
    ASSERT_TRUE(black);
    EXPECT_EQ(black->width, 320u);
    EXPECT_EQ(black->height, 180u);
}

TEST(ScreenView, BlackWhenTheDisplayIsUnplugged) {
    Board board(benchScenario("tiny"), fast);
    Application application(board);
    const std::size_t playing = application.expectPlaying();
    ViewClient client(board.folder(), wire::ViewKind::screen);
    client.grant();
    ASSERT_TRUE(client.receive());
    board.unplug("display");
    EXPECT_TRUE(waitForBlack(client));
    board.plug("display");
    application.expectPlaying(playing);
    for (std::uint32_t format = 0; format == 0;) {
        client.grant();
        const auto packet = client.receive();
        ASSERT_TRUE(packet);
        format = packet->as<wire::ViewPicture>().format;
    }
}

TEST(ScreenView, BlackFromTheStart) {
    Board board(benchScenario("tiny"), fast);
    ViewClient client(board.folder(), wire::ViewKind::screen);
    EXPECT_TRUE(waitForBlack(client));
}

TEST(FlipView, NumbersEveryFlip) {
    Board board(benchScenario("tiny"), fast);
    ViewClient flips(board.folder(), wire::ViewKind::flips);
    Application application(board);
    application.expectPlaying();
    ASSERT_TRUE(
        board.waitForDisplay([](const auto& now) { return now.shown >= 60; }, Milliseconds(20000)));
    board.holdFlips(true);
    const support::DisplayFigures figures = board.display();
    std::uint64_t last = 0, marked = 0, repeated = 0, skipped = 0;
    std::int64_t lastShown_ns = 0;
    std::uint32_t lastFrame = 0;
    while (last < figures.flips) {
        const auto packet = flips.receive();
        ASSERT_TRUE(packet) << "after flip " << last << " of " << figures.flips;
        ASSERT_EQ(packet->bytes().size(), sizeof(wire::ViewFlip));
        const auto flip = packet->as<wire::ViewFlip>();
        EXPECT_EQ(flip.flip, last + 1);
        EXPECT_GT(flip.shown_ns, lastShown_ns);
        if (flip.marked != 0) {
            EXPECT_LT(flip.taken_ns, flip.shown_ns);
            if (marked != 0) {
                EXPECT_EQ(flip.frame, flip.repeated ? lastFrame : lastFrame + 1 + flip.skipped);
            }
            lastFrame = flip.frame;
        }
        last = flip.flip;
        lastShown_ns = flip.shown_ns;
        marked += flip.marked;
        repeated += flip.repeated;
        skipped += flip.skipped;
    }
    EXPECT_FALSE(flips.receive(Milliseconds(0)));
    EXPECT_EQ(marked, figures.shown);
    EXPECT_EQ(repeated, figures.repeated);
    EXPECT_EQ(skipped, figures.skipped);
    board.holdFlips(false);
}

}  // namespace
