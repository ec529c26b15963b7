// Every line of real logs, in good days and bad ones, has exactly one entry in docs/log-lines.md.

#include <gtest/gtest.h>

#include <cerrno>
#include <set>

#include "board/console/loglines.h"
#include "tests/support/application.h"
#include "tests/support/cameramode.h"
#include "tests/support/scenarios.h"
#include "tests/system/soundbench.h"

namespace {

using board::console::LogLines;
using support::Application;
using support::benchScenario;
using support::Board;
using support::CameraMode;
using support::Milliseconds;
using support::ModeScenario;

constexpr char deleted[] = "delete capture media succeed";
constexpr char failedToNone[] = "statue: STATUE_POOL_OPENFAID ==> STATUE_POLL_NODEVICE";
constexpr char openToFailed[] = "statue: STATUE_POOL_OPENDEVICE ==> STATUE_POOL_OPENFAID";
constexpr char getqTimeout[] = "Decoder_Rawvideo getq timeout";

// The entries whose lines a run printed.
class Seen {
  public:
    void take(const support::Lines& log) {
        for (const std::string& line : log.all()) {
            if (!line.empty()) {
                takeLine(line);
            }
        }
    }
    void expect(std::initializer_list<const char*> patterns) const {
        for (const char* pattern : patterns) {
            EXPECT_EQ(patterns_.count(pattern), 1u)
                << "the run did not print \"" << pattern << "\"";
        }
    }
    std::size_t count() const { return patterns_.size(); }

  private:
    void takeLine(const std::string& line) {
        static const LogLines lines = LogLines::fromFile(support::sourcePath("docs/log-lines.md"));
        const std::vector<std::size_t> found = lines.findAll(line);
        if (found.empty()) {
            ADD_FAILURE() << "not in docs/log-lines.md: \"" << line << "\"";
            return;
        }
        const std::string& pattern = lines.entries()[found.front()].pattern;
        if (found.size() > 1) {
            EXPECT_GT(lines.literalBytes(found[0]), lines.literalBytes(found[1]))
                << "\"" << line << "\" may be \"" << pattern << "\" or \""
                << lines.entries()[found[1]].pattern << "\"";
        }
        EXPECT_EQ(lines.find(line), found.front()) << line;
        patterns_.insert(pattern);
    }

    std::set<std::string> patterns_;
};

// The whole log of an application that is ended here.
Seen everythingOf(Application& application) {
    application.end();
    Seen seen;
    seen.take(application.out());
    seen.take(application.err());
    std::printf("%zu lines, %zu entries\n", application.out().size() + application.err().size(),
                seen.count());
    return seen;
}

bool showsMore(Board& board, std::uint64_t frames) {
    const std::uint64_t before = board.display().shown;
    return board.waitForDisplay(
        [&](const auto& figures) { return figures.shown >= before + frames; }, Milliseconds(20000));
}

bool plays(Board& board) {
    const std::uint64_t before = board.sound("output").frames;
    return board.waitForSound(
        "output", [&](const auto& figures) { return figures.frames >= before + 4800; },
        Milliseconds(20000));
}

TEST(RealLogs, HealthyStartAndPlugs) {
    Board board(support::soundScenario({}, "ramp"), 2);
    Application application(board);
    std::size_t next = application.expectPlaying();
    ASSERT_TRUE(showsMore(board, 5));
    board.unplug("camera");
    next = application.expectLine(failedToNone, Milliseconds(10000), next);
    board.plug("camera");
    next = application.expectPlaying(next);
    ASSERT_TRUE(showsMore(board, 5));
    board.unplug("display");
    next = application.expectLine(deleted, Milliseconds(10000), next);
    board.plug("display");
    application.expectPlaying(next);
    everythingOf(application)
        .expect({"old version : …", " … …@…", "     flags:…", "   Yuyv    …x…@…",
                 "###!!!---***  select fmt (by pass) ***---!!!### :…x…@…",
                 "… conn_id = … ---------- enc_id = … crtc_id = … get drm mode index succeed "
                 "index = …",
                 "find decoder dev is …", "  exact rate   : … (…/…)", "VIDIOC_DQBUF faild errno =…",
                 "show dev disconnect ", "    Rates: …", "… at …, … speed : USB Audio"});
}

// Frames and flips each half a minute, temperatures each minute of board time.
TEST(RealLogs, Reports) {
    Board board(benchScenario("small"), 4);
    Application application(board);
    application.expectPlaying();
    for (const char* line : {"^cap:[0-9]+$", "^fps:[0-9]+$", "^cpu1:$", "^[0-9]{5}$"}) {
        EXPECT_TRUE(application.out().waitForMatch(line, Milliseconds(30000))) << line;
    }
    everythingOf(application).expect({"cap:…", "fps:…", "cpu0:", "cpu1:", "…"});
}

// The camera of another kind, whose microphone needs a conversion; then everything goes wrong.
TEST(RealLogs, SoundTrouble) {
    support::MicrophoneKind mono;
    mono.channels = 1;
    mono.rate = 16000;
    Board board(support::soundScenario(mono, "ramp"));
    Application application(board);
    const std::size_t next = application.expectPlaying();
    ASSERT_TRUE(plays(board));
    const auto comes = [&](const char* line) {
        EXPECT_TRUE(application.out().waitForMatch(line, Milliseconds(10000), next)) << line;
    };
    board.fail("SNDRV_PCM_IOCTL_READI_FRAMES", 1, EPIPE);
    comes("^SNDWAV_ReadPcm");
    board.fail("SNDRV_PCM_IOCTL_READI_FRAMES", 1, EIO);
    comes("^ret error = -5$");
    board.fail("SNDRV_PCM_IOCTL_WRITEI_FRAMES", 1, EIO);
    comes("^Error snd_pcm_writei: ");
    board.suspend("output");
    comes("^<<<<<<<<<<<<<<< Need suspend");
    board.stall("output", false);
    board.unplug("microphone");
    comes("^PlaybackAudio getq timeout$");
    everythingOf(application)
        .expect({"src channels …", "audio resample init succeed", "audio select … succeed",
                 "Error snd_pcm_writei: …", "ret error = …",
                 "<<<<<<<<<<<<<<< Need suspend >>>>>>>>>>>>>>>"});
}

TEST(RealLogs, SoundCardsThatDoNotOpen) {
    support::MicrophoneKind odd;
    odd.limits = R"({"settings": [{"formats": ["S16_LE"], "channels": 4, "rates": [48000]}]})";
    Board board(support::soundScenario(odd, "ramp", "null"));
    Application application(board);
    application.expectPlaying();
    everythingOf(application)
        .expect({" Error snd_pcm_hw_params_set_channels", " Error set_snd_pcm_params …",
                 " Error snd_pcm_open …", "ALSA lib …:…:(…) …"});
}

class RealLogsOf : public testing::TestWithParam<CameraMode> {};

TEST_P(RealLogsOf, DamagedPayloads) {
    const ModeScenario scenario(GetParam());
    Board board(scenario.path());
    Application application(board);
    application.expectPlaying();
    ASSERT_TRUE(showsMore(board, 5));
    const bool isJpeg = std::string(GetParam().fourcc) == "MJPG";
    for (const char* kind : {"truncate", "flip-bits", "empty", "oversized"}) {
        board.order(std::string(R"({"order":"payload-fault","kind":")") + kind + R"(","count":3})");
        ASSERT_TRUE(showsMore(board, 10)) << kind;
    }
    const Seen seen = everythingOf(application);
    if (isJpeg) {
        seen.expect({"   Mjpeg   …x…@…", "… mpi_dec_test decoder test start w … h … type …",
                     "mpp dec frame get buffer faild", "… frame without data dropped"});
    } else {
        seen.expect({"… packet without data dropped", "h264 mpp decoder open succeed",
                     "… decode_get_frame get info changed found",
                     "… decoder require buffer w:h […:…] stride […:…] buf_size …"});
    }
}

constexpr CameraMode modes[] = {
    {"Mjpeg", "MJPG", 320, 240, 30, "", 320, 240, 2500000, "field:bars"},
    {"H264", "H264", 320, 240, 30, R"("keyFrameDistance": 15)", 320, 240, 2500000, "field:bars"}};

INSTANTIATE_TEST_SUITE_P(Cameras, RealLogsOf, testing::ValuesIn(modes),
                         [](const testing::TestParamInfo<CameraMode>& info) {
                             return std::string(info.param.name);
                         });

TEST(RealLogs, Remote) {
    Board board(benchScenario("small-ptz"), 2);
    Application application(board);
    std::size_t next = application.expectPlaying();
    ASSERT_TRUE(application.out().waitForMatch(": open, fd = ", Milliseconds(10000)));
    board.hold("W", Milliseconds(200));
    board.hold("R", Milliseconds(200));
    board.hold("T", Milliseconds(200));
    board.unplug("remote");
    next = application.expectLine("/dev/input/event0 disconnect!!!", Milliseconds(10000), next);
    board.plug("remote");
    ASSERT_TRUE(application.out().waitForMatch(": open, fd = ", Milliseconds(10000), next));
    ASSERT_TRUE(showsMore(board, 1));
    board.hold("L", Milliseconds(200));
    next = application.expectLine("statue: STATUE_POOL_PLAYERR ==> STATUE_POOL_OPENFAID",
                                  Milliseconds(20000), next);
    ASSERT_TRUE(application.out().waitForMatch(": open, fd = ", Milliseconds(10000), next));
    board.hold("L", Milliseconds(200));
    application.expectPlaying(next);
    everythingOf(application)
        .expect({"…: open, fd = …", "… disconnect!!!", "name:…, max:…, min:…, step:…",
                 "statue: STATUE_POOL_OPENFAID ==> STATUE_POLL_NODEVICE(WAKE UP)"});
}

// One step of a start after the other fails.
TEST(RealLogs, StartsThatFail) {
    Board board(benchScenario("small-unplugged"), 8);
    Application application(board);
    std::size_t next = 0;
    for (const char* step :
         {"VIDIOC_QUERYCAP", "VIDIOC_S_FMT", "VIDIOC_REQBUFS", "VIDIOC_QUERYBUF", "VIDIOC_QBUF",
          "VIDIOC_STREAMON", "DRM_IOCTL_MODE_CREATE_DUMB", "DRM_IOCTL_MODE_ADDFB2",
          "DRM_IOCTL_MODE_MAP_DUMB", "DRM_IOCTL_MODE_SETCRTC"}) {
        SCOPED_TRACE(step);
        const bool isDisplay = step[0] == 'D';
        board.fail(step, 1, EIO);
        board.plug("camera");
        // A display that was not set up is found disconnected by the pipeline that plays.
        next = isDisplay ? application.expectLine(deleted, Milliseconds(20000), next)
                         : application.expectLine(openToFailed, Milliseconds(20000), next);
        board.clearFaults();
        // Nothing is deleted again before the next pipeline is there.
        if (isDisplay) {
            next = application.expectPlaying(next);
        }
        board.unplug("camera");
        next =
            application.expectLine(isDisplay ? deleted : failedToNone, Milliseconds(20000), next);
    }
    everythingOf(application)
        .expect({"VIDIOC_QUERYCAP, …, …", "VIDIOC_S_FMT faild", "VIDIOC_REQBUFS faild",
                 "VIDIOC_QUERYBUF faild", "VIDIOC_QBUF faild", "VIDIOC_STREAMON faild",
                 "display: cannot make a scan-out buffer: …, …",
                 "display: cannot make a framebuffer: …, …",
                 "display: cannot find a scan-out buffer's memory: …, …",
                 "display: cannot set the mode: …, …"});
}

TEST(RealLogs, FaultsWhileItPlays) {
    Board board(benchScenario("small"), 2);
    support::writeFile(board.rootPath("/usr/bin/startupflag"), "");
    support::writeFile(board.rootPath("/userdata/newsysver"), "1.4\n");
    board.fail("VIDIOC_G_PARM", 1, EIO);
    board.fail("VIDIOC_S_PARM", 1, EIO);
    Application application(board);
    std::size_t next = application.expectPlaying();
    ASSERT_TRUE(showsMore(board, 5));
    // A decoder whose queue is full takes no frame, whatever its size.
    const auto dropped = [&] {
        board.setPayload(1000, 2);
        return application.err().waitForMatch("^rawvideo frame dropped: ", Milliseconds(500));
    };
    const auto began = support::Clock::now();
    bool told = dropped().has_value();
    while (!told && support::Clock::now() - began < support::scaled(Milliseconds(20000))) {
        told = dropped().has_value();
    }
    EXPECT_TRUE(told) << application.out().text() << application.err().text();
    board.fail("DRM_IOCTL_MODE_PAGE_FLIP", 1, EBUSY);
    ASSERT_TRUE(
        application.err().waitForMatch("^display: cannot queue a page flip", Milliseconds(20000)));
    board.holdFlips(true);
    next = application.expectLine("clean queue buff", Milliseconds(20000), next);
    board.holdFlips(false);
    board.stallCamera(true);
    ASSERT_TRUE(application.err().waitForExactly("select timeout", Milliseconds(20000)));
    application.expectLine(deleted, Milliseconds(10000), next);
    everythingOf(application)
        .expect({"file size: …", "VIDIOC_G_PARM faild", "VIDIOC_S_PARM faild", "clean queue buff",
                 "rawvideo frame dropped: … bytes, its picture of …x… takes …",
                 "display: cannot queue a page flip, which is tried again: …, …", getqTimeout,
                 "select timeout"});
}

}  // namespace
