// H.264 streams through packets and frames.
#include <gtest/gtest.h>

#include "tests/unit/mpp/client.h"
#include "tests/unit/mpp/coded.h"

using client::Shown;
using coded::Bytes;

namespace {

void expectSame(const std::vector<Shown>& shown, const std::vector<coded::Picture>& expected) {
    ASSERT_EQ(shown.size(), expected.size());
    for (std::size_t i = 0; i < shown.size(); ++i) {
        SCOPED_TRACE("picture " + std::to_string(i));
        EXPECT_EQ(shown[i].errinfo, 0U);
        EXPECT_EQ(shown[i].discard, 0U);
        EXPECT_EQ(shown[i].picture.width, expected[i].width);
        EXPECT_EQ(shown[i].picture.height, expected[i].height);
        EXPECT_EQ(shown[i].horStride, (shown[i].width + 15) / 16 * 16);
        EXPECT_EQ(shown[i].verStride, (shown[i].height + 15) / 16 * 16);
        EXPECT_TRUE(shown[i].picture.y == expected[i].y);
        EXPECT_TRUE(shown[i].picture.u == expected[i].u);
        EXPECT_TRUE(shown[i].picture.v == expected[i].v);
    }
}

struct Stream {
    const char* name;
    coded::Avc how;
};

coded::Avc with(void (*change)(coded::Avc&)) {
    coded::Avc how;
    how.frames = 24;
    change(how);
    return how;
}

const std::vector<Stream> streams = {
    {"plain", with([](coded::Avc&) {})},
    {"b_frames", with([](coded::Avc& how) { how.bFrames = 3; })},
    {"b_pyramid", with([](coded::Avc& how) {
         how.bFrames = 3;
         how.more = "b-pyramid=normal";
         how.keyDistance = 10;
     })},
    {"open_gop", with([](coded::Avc& how) {
         how.bFrames = 2;
         how.more = "open-gop=1";
         how.keyDistance = 6;
     })},
    {"slices", with([](coded::Avc& how) { how.slices = 3; })},
    {"cropped", with([](coded::Avc& how) {
         how.width = 182;
         how.height = 98;
     })},
    {"sampling422", with([](coded::Avc& how) { how.highSampling = true; })},
    {"key_frames", with([](coded::Avc& how) { how.keyDistance = 1; })},
    {"intra_refresh", with([](coded::Avc& how) {
         how.more = "intra-refresh=1";
         how.keyDistance = 8;
     })},
};

class AvcStream : public testing::TestWithParam<Stream> {};

}  // namespace

TEST_P(AvcStream, IsDecodedBitForBit) {
    const std::vector<Bytes> units = coded::encode(GetParam().how);
    client::Avc decoder;
    for (const Bytes& unit : units) {
        decoder.feed(unit);
        decoder.drain();
    }
    decoder.finish();
    EXPECT_EQ(decoder.changes, 1);
    expectSame(decoder.shown, coded::decodeAvc(units));
}

INSTANTIATE_TEST_SUITE_P(Table, AvcStream, testing::ValuesIn(streams),
                         [](const auto& info) { return std::string(info.param.name); });
