// The filter keeps what the log must say and drops only what comes by chance.

#include "tests/support/logfilter.h"

#include <gmock/gmock.h>

namespace {

using support::steadyLines;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(LogFilter, DropsWhatComesByChance) {
    EXPECT_THAT(steadyLines({"Decoder_Rawvideo getq timeout", "show control getq timeout", "fps:30",
                             "cap:29", "hw memory[12345]", "cpu0:", "45000",
                             "cpu1:", "0.avail error = -32", "1.avail error = -32",
                             "SNDWAV_ReadPcm <<<<<<<<<<<<<<< Buffer Underrun >>>>>>>>>>>>>>>"}),
                IsEmpty());
}

TEST(LogFilter, KeepsWhatOnlyLooksSimilar) {
    const std::vector<std::string> log = {"fps:",
                                          "Decoder_Rawvideosvc normal stop!",
                                          "VIDIOC_QBUF faild",
                                          " cap:29",
                                          "cpu2:",
                                          "450",
                                          "0.avail error = -19"};
    EXPECT_EQ(steadyLines(log), log);
}

TEST(LogFilter, WritesRawBytesReadably) {
    EXPECT_THAT(steadyLines({std::string("\0 conn_id = 33", 14), "\x01 conn_id"}),
                ElementsAre("\\x00 conn_id = 33", "\\x01 conn_id"));
}

TEST(LogFilter, ReplacesAddressesAndTheQueuesRest) {
    EXPECT_THAT(steadyLines({"0x7f00deadbeef failed", "rawvideo close remain avpacket queue :7"}),
                ElementsAre("POINTER failed", "rawvideo close remain avpacket queue :N"));
}

TEST(LogFilter, PutsLinesOfThreadsThatNobodyWaitsForAtTheEnd) {
    EXPECT_THAT(steadyLines({"one", "/dev/input/event0: open, fd = 4", "two",
                             "/dev/input/event11: open, fd = 23", "three"}),
                ElementsAre("one", "two", "three", "/dev/input/event0: open, fd = N",
                            "/dev/input/event11: open, fd = N"));
    EXPECT_THAT(
        steadyLines({"PlaybackAudio resamplePlay normal stop!", "PlaybackAudiosvc normal stop!"}),
        ElementsAre("PlaybackAudiosvc normal stop!", "PlaybackAudio resamplePlay normal stop!"));
    EXPECT_THAT(steadyLines({"/dev/input/event0: open failed", "one"}),
                ElementsAre("/dev/input/event0: open failed", "one"));
}

TEST(LogFilter, KeepsOneOfLinesThatAreSaidAgain) {
    EXPECT_THAT(
        steadyLines({"select timeout", "select timeout", "one", "select timeout", "one", "one"}),
        ElementsAre("select timeout", "one", "select timeout", "one", "one"));
}

}  // namespace
