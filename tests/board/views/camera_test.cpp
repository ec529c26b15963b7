// What a client of the camera's payloads gets while a program streams.

#include <gtest/gtest.h>

#include "tests/board/views/viewclient.h"
#include "tests/support/application.h"
#include "tests/support/cameramode.h"

namespace {

using support::Application;
using support::Board;
using support::CameraMode;
using support::Milliseconds;
using support::ModeScenario;
using views::Packet;
using views::ViewClient;
namespace wire = board::wire;

const CameraMode modes[] = {
    {"Yuyv", "YUYV", 320, 240, 30, "", 320, 240, 0, "field:bars"},
    {"Mjpeg", "MJPG", 320, 240, 30, "", 320, 240, 0, "field:bars"},
    {"H264", "H264", 320, 240, 30, R"("keyFrameDistance": 10, "bitRate": 1000000)", 320, 240, 0,
     "field:bars"},
};

std::uint32_t fourccOf(const CameraMode& mode) {
    std::uint32_t fourcc = 0;
    for (int i = 3; i >= 0; --i)
        fourcc = fourcc << 8 | std::uint8_t(mode.fourcc[i]);
    return fourcc;
}

class StreamingCamera {
  protected:
    explicit StreamingCamera(const CameraMode& mode)
        : scenario_(mode), board_(scenario_.path()), application_(board_) {
        application_.expectPlaying();
    }

    // The camera stands still from here on; how much it has delivered.
    std::uint64_t stop() {
        board_.stallCamera(true);
        return board_.camera().delivered;
    }

    ModeScenario scenario_;
    Board board_;
    Application application_;
};

class CameraView : public StreamingCamera, public testing::TestWithParam<CameraMode> {
  protected:
    CameraView() : StreamingCamera(GetParam()) {}
};

TEST_P(CameraView, IsWhatTheCameraDelivered) {
    const std::string path = board_.folder() + "/payloads";
    const std::uint64_t before = stop();
    ViewClient client(board_.folder(), wire::ViewKind::camera);
    ASSERT_TRUE(client.grant(wire::maxViewCredit));
    board_.order(R"({"order": "payloads", "action": "start", "path": ")" + path + "\"}");
    board_.order(R"({"order": "payload-mix", "permille": 300, "seed": 5})");
    board_.stallCamera(false);
    std::vector<std::uint8_t> seen;
    std::uint32_t lastFrame = 0;
    // Frames that found no buffer, on a busy machine, are nobody's.
    const std::uint64_t lostBefore = board_.camera().lost;
    std::uint64_t missing = 0;
    // Damage may need pictures of its own before the file begins.
    std::uint64_t count = 0, until = 40;
    while (count < until) {
        const auto packet = client.receive();
        ASSERT_TRUE(packet) << "after " << count << " payloads";
        client.grant();
        const auto payload = packet->as<wire::ViewPayload>();
        EXPECT_EQ(packet->bytes().size(), sizeof payload);
        EXPECT_EQ(payload.fourcc, fourccOf(GetParam()));
        EXPECT_EQ(payload.width, 320u);
        EXPECT_EQ(payload.height, 240u);
        if (count > 0) {
            ASSERT_GT(payload.frame, lastFrame);
            missing += payload.frame - lastFrame - 1;
        }
        lastFrame = payload.frame;
        ASSERT_EQ(packet->descriptors().size(), payload.bytes == 0 ? 0u : 1u);
        const std::vector<std::uint8_t> bytes =
            payload.bytes == 0 ? std::vector<std::uint8_t>() : packet->memory();
        EXPECT_EQ(bytes.size(), payload.bytes);
        seen.insert(seen.end(), bytes.begin(), bytes.end());
        if (++count == 40)
            until = stop() - before;
    }
    board_.order(R"({"order": "payloads", "action": "stop"})");
    EXPECT_LE(missing, board_.camera().lost - lostBefore);
    const std::string file = support::readFile(path);
    ASSERT_GT(file.size(), 1000u);
    ASSERT_GE(seen.size(), file.size());
    // The file of an H.264 stream begins with the first parameter sets.
    if (fourccOf(GetParam()) != fourccOf(modes[2])) {
        EXPECT_EQ(seen.size(), file.size());
    }
    const auto* copied = reinterpret_cast<const std::uint8_t*>(file.data());
    EXPECT_TRUE(std::equal(seen.end() - std::ptrdiff_t(file.size()), seen.end(), copied));
}

class CameraCredit : public StreamingCamera, public testing::Test {
  protected:
    CameraCredit() : StreamingCamera(modes[1]) {}
};

TEST_F(CameraCredit, IsWhatComes) {
    stop();
    ViewClient client(board_.folder(), wire::ViewKind::camera);
    ViewClient other(board_.folder(), wire::ViewKind::camera);
    client.grant(2);
    other.grant(wire::maxViewCredit);
    board_.stallCamera(false);
    std::vector<Packet> all;
    for (int i = 0; i < 10; ++i) {
        auto packet = other.receive();
        ASSERT_TRUE(packet);
        all.push_back(std::move(*packet));
    }
    for (int i = 0; i < 2; ++i) {
        const auto packet = client.receive(Milliseconds(0));
        ASSERT_TRUE(packet);
        EXPECT_EQ(packet->as<wire::ViewPayload>().frame, all[i].as<wire::ViewPayload>().frame);
        EXPECT_EQ(packet->memory(), all[i].memory());
    }
    EXPECT_FALSE(client.receive(Milliseconds(0))) << "a payload beyond the credit";
    client.grant();
    const auto later = client.receive();
    ASSERT_TRUE(later);
    EXPECT_GT(later->as<wire::ViewPayload>().frame, all.back().as<wire::ViewPayload>().frame);
}

INSTANTIATE_TEST_SUITE_P(Formats, CameraView, testing::ValuesIn(modes),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
