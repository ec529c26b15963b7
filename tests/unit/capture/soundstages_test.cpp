// When the session builds microphone and output, for which formats, and in which order they go.
#include "control/capture/capturemedia.h"
#include "tests/unit/capture/fakecamera.h"
#include "tests/unit/capture/fakesound.h"
#include "tests/unit/capture/fakestages.h"
#include "tests/unit/capture/output.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <cerrno>

namespace {

std::string oneSetting(unsigned channels, const std::string& format, const std::string& rates) {
    return "Capture:\n  Interface 3\n    Altset 1\n    Format: " + format +
           "\n    Channels: " + std::to_string(channels) + "\n    Rates: " + rates + "\n";
}

class SoundStages : public testing::Test {
  protected:
    void SetUp() override {
        stages::reset({{0, 1280, 720, 60}});
        sound::reset();
    }
    void TearDown() override { sound::reset(); }

    // Builds, starts and drops a session; what happened to its sound stages, and whatever else
    // `also` names, without the state of the camera.
    std::vector<std::string> journalOf(const std::vector<std::string>& also = {}) {
        outputOf([&] {
            CaptureMedia media("/dev/video0");
            EXPECT_TRUE(media.startPlayMedia());
        });
        std::vector<std::string> kept;
        for (const std::string& entry : stages::journal()) {
            const std::string what = entry.substr(0, entry.find(" after "));
            const bool wanted = what.rfind("microphone", 0) == 0 || what.rfind("output", 0) == 0 ||
                                std::find(also.begin(), also.end(), what) != also.end();
            if (wanted) {
                kept.push_back(also.empty() ? what : entry);
            }
        }
        return kept;
    }

    // The format of the output for a camera with this one setting; empty: no sound.
    std::string outputFor(unsigned channels, const std::string& format, const std::string& rates) {
        stages::reset({{0, 1280, 720, 60}});
        sound::setText(1, oneSetting(channels, format, rates));
        const std::vector<std::string> journal = journalOf();
        return journal.size() < 2 ? "" : journal[1];
    }

    FakeCamera fake{camera({cameraFormat("H264", {{1280, 720, {16}}})})};
};

TEST_F(SoundStages, StandBetweenDecoderAndDisplayAndGoFirst) {
    sound::setText(1, oneSetting(2, "S16_LE", "48000"));
    const std::vector<std::string> expected = {"decoder_open after REQBUFS",
                                               "microphone hw:1,0 2x2@48000 after REQBUFS",
                                               "output 2x2@48000 as 2x2@48000 after REQBUFS",
                                               "microphone runs, linked yes after REQBUFS",
                                               "show runs after REQBUFS",
                                               "microphone deleted after STREAMON",
                                               "output deleted after STREAMON",
                                               "decoder deleted after close",
                                               "show deleted after close"};
    std::vector<std::string> seen =
        journalOf({"decoder_open", "show runs", "decoder deleted", "show deleted"});
    // The two tasks report from threads of their own, in any order.
    ASSERT_EQ(seen.size(), expected.size());
    std::sort(seen.begin() + 3, seen.begin() + 5);
    EXPECT_EQ(seen, expected);
}

TEST_F(SoundStages, AreLeftOutWithoutACard) {
    EXPECT_EQ(journalOf(), std::vector<std::string>{});
}

TEST_F(SoundStages, AreLeftOutWithoutAUsableFormat) {
    EXPECT_EQ(outputFor(2, "S24_3LE", "48000"), "");
    EXPECT_EQ(outputFor(0, "S16_LE", "48000"), "");
    EXPECT_EQ(outputFor(2, "S16_LE", ""), "");
    EXPECT_EQ(outputFor(2, "NEVER_HEARD", "48000"), "");
}

TEST_F(SoundStages, PlayTheCamerasFormatOrTheNearestThatTheOutputHas) {
    EXPECT_EQ(outputFor(2, "S16_LE", "44100"), "output 2x2@44100 as 2x2@44100");
    EXPECT_EQ(outputFor(2, "S16_LE", "32000"), "output 2x2@32000 as 2x2@32000");
    EXPECT_EQ(outputFor(1, "S16_LE", "48000"), "output 1x2@48000 as 2x2@48000");
    EXPECT_EQ(outputFor(8, "S16_LE", "44100"), "output 8x2@44100 as 2x2@44100");
    EXPECT_EQ(outputFor(3, "S16_LE", "32000"), "output 3x2@32000 as 2x2@32000");
    EXPECT_EQ(outputFor(2, "S16_LE", "16000"), "output 2x2@16000 as 2x2@44100");
    EXPECT_EQ(outputFor(1, "S16_LE", "8000"), "output 1x2@8000 as 2x2@32000");
}

TEST_F(SoundStages, GoWithASessionThatDoesNotStart) {
    sound::setText(2, oneSetting(1, "S16_LE", "16000"));
    fake.failing[VIDIOC_STREAMON] = EIO;
    outputOf([&] {
        CaptureMedia media("/dev/video0");
        EXPECT_FALSE(media.startPlayMedia());
    });
    const std::vector<std::string> journal = stages::journal();
    EXPECT_EQ(std::count(journal.begin(), journal.end(), "microphone deleted after REQBUFS"), 1);
    EXPECT_EQ(std::count(journal.begin(), journal.end(), "output deleted after REQBUFS"), 1);
}

}  // namespace
