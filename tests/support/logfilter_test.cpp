// The filter keeps what the log must say and drops only what comes by chance.

#include "tests/support/logfilter.h"

#include <gmock/gmock.h>

namespace {

using support::steadyLines;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(LogFilter, DropsWhatComesByChance) {
    EXPECT_THAT(steadyLines({"Decoder_Rawvideo getq timeout", "show control getq timeout", "fps:30",
                             "cap:29", "hw memory[12345]", "cpu0:", "45000", "cpu1:"}),
                IsEmpty());
}

TEST(LogFilter, KeepsWhatOnlyLooksSimilar) {
    const std::vector<std::string> log = {
        "fps:", "Decoder_Rawvideosvc normal stop!", "VIDIOC_QBUF faild", " cap:29", "cpu2:", "450"};
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

}  // namespace
