// H.264 streams through packets and frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>

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

void PrintTo(const Stream& one, std::ostream* out) {
    *out << one.name;
}

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

namespace {

Bytes joined(const std::vector<Bytes>& units) {
    Bytes all;
    for (const Bytes& unit : units) {
        all.insert(all.end(), unit.begin(), unit.end());
    }
    return all;
}

void feedInPieces(client::Avc& decoder, const Bytes& stream, std::size_t piece) {
    for (std::size_t at = 0; at < stream.size(); at += piece) {
        const auto from = stream.begin() + static_cast<std::ptrdiff_t>(at);
        const auto size = static_cast<std::ptrdiff_t>(std::min(piece, stream.size() - at));
        decoder.feed(Bytes(from, from + size));
        decoder.drain();
    }
    decoder.finish();
}

}  // namespace

TEST(Avc, PacketsMayBeCutAnywhere) {
    coded::Avc how;
    how.frames = 6;
    how.bFrames = 2;
    how.slices = 2;
    const std::vector<Bytes> units = coded::encode(how);
    const std::vector<coded::Picture> expected = coded::decodeAvc(units);
    const Bytes stream = joined(units);
    for (const std::size_t piece : {std::size_t{50}, std::size_t{1000}, stream.size()}) {
        SCOPED_TRACE("pieces of " + std::to_string(piece));
        client::Avc decoder;
        feedInPieces(decoder, stream, piece);
        expectSame(decoder.shown, expected);
    }
}

TEST(Avc, SeveralUnitsInAPacket) {
    const std::vector<Bytes> units = coded::encode(coded::Avc{});
    client::Avc decoder;
    for (std::size_t i = 0; i < units.size(); i += 4) {
        const auto from = units.begin() + static_cast<std::ptrdiff_t>(i);
        decoder.feed(joined({from, from + 4}));
    }
    decoder.finish();
    expectSame(decoder.shown, coded::decodeAvc(units));
}

TEST(Avc, WholePacketsWithoutSplitting) {
    const std::vector<Bytes> units = coded::encode(coded::Avc{});
    client::Avc decoder(false);
    for (const Bytes& unit : units) {
        decoder.feed(unit);
    }
    decoder.finish();
    expectSame(decoder.shown, coded::decodeAvc(units));
}

// A camera's picture must not wait for the next one: after the first packets each put is answered.
TEST(Avc, EachPacketsPictureComesAtOnce) {
    coded::Avc how;
    how.frames = 20;
    const std::vector<Bytes> units = coded::encode(how);
    client::Avc decoder;
    std::size_t next = 0;
    for (; next < 6; ++next) {
        decoder.feed(units[next], static_cast<RK_S64>(next) * 1000);
    }
    while (decoder.shown.size() < next) {
        ASSERT_TRUE(decoder.waitAndHandle()) << "after " << decoder.shown.size() << " pictures";
    }
    for (; next < units.size(); ++next) {
        decoder.feed(units[next], static_cast<RK_S64>(next) * 1000);
        ASSERT_TRUE(decoder.waitAndHandle()) << "packet " << next;
        EXPECT_EQ(decoder.shown.size(), next + 1);
    }
    for (std::size_t i = 0; i < decoder.shown.size(); ++i) {
        EXPECT_EQ(decoder.shown[i].pts, static_cast<RK_S64>(i) * 1000);
    }
}

TEST(Avc, SizeChangesInMidStream) {
    coded::Avc small;
    small.bFrames = 2;  // pictures are held back when the change comes
    coded::Avc large = small;
    large.width = 96;
    large.height = 80;
    std::vector<Bytes> units;
    std::vector<coded::Picture> expected;
    for (const coded::Avc& how : {small, large, small}) {
        const std::vector<Bytes> part = coded::encode(how);
        const std::vector<coded::Picture> pictures = coded::decodeAvc(part);
        units.insert(units.end(), part.begin(), part.end());
        expected.insert(expected.end(), pictures.begin(), pictures.end());
    }
    client::Avc decoder;
    for (const Bytes& unit : units) {
        decoder.feed(unit);
        decoder.drain();
    }
    decoder.finish();
    EXPECT_EQ(decoder.changes, 3);
    expectSame(decoder.shown, expected);
}

TEST(Avc, InformationChangeTellsSizesAndWaitsForTheAnswer) {
    coded::Avc how;
    how.width = 182;
    how.height = 98;
    const std::vector<Bytes> units = coded::encode(how);
    client::Avc decoder;
    for (std::size_t i = 0; i < 3; ++i) {
        ASSERT_EQ(decoder.put(units[i]), MPP_OK);
    }
    MppFrame frame = decoder.take(20000);
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(mpp_frame_get_info_change(frame), 1U);
    EXPECT_EQ(mpp_frame_get_width(frame), 182U);
    EXPECT_EQ(mpp_frame_get_height(frame), 98U);
    EXPECT_EQ(mpp_frame_get_hor_stride(frame), 192U);
    EXPECT_EQ(mpp_frame_get_ver_stride(frame), 112U);
    EXPECT_GE(mpp_frame_get_buf_size(frame), 192U * 112 * 3 / 2);
    EXPECT_EQ(mpp_frame_get_buffer(frame), nullptr);
    // Unanswered nothing goes on: packets pile up, and no frame comes.
    MPP_RET result = MPP_OK;
    for (int i = 0; i < 20 && result == MPP_OK; ++i) {
        result = decoder.put(units[3]);
    }
    EXPECT_EQ(result, MPP_ERR_BUFFER_FULL);
    EXPECT_EQ(decoder.take(0), nullptr);
    MppDecQueryCfg query{};
    query.query_flag = MPP_DEC_QUERY_ALL;
    EXPECT_EQ(decoder.mpi->control(decoder.ctx, MPP_DEC_QUERY, &query), MPP_OK);
    EXPECT_EQ(query.dec_out_frm_cnt, 0U);
    EXPECT_EQ(query.dec_hw_run_cnt, 0U);
    decoder.answer(frame);
    mpp_frame_deinit(&frame);
    frame = decoder.take(20000);
    ASSERT_NE(frame, nullptr);
    EXPECT_NE(mpp_frame_get_buffer(frame), nullptr);
    mpp_frame_deinit(&frame);
}

TEST(Avc, WaitsForTheProgramToGiveBuffersBack) {
    const std::vector<Bytes> units = coded::encode(coded::Avc{});
    client::Avc decoder;
    decoder.limit = 2;
    std::vector<MppFrame> held;
    std::size_t next = 0;
    while (held.size() < 2) {
        if (next < units.size() && decoder.put(units[next]) == MPP_OK) {
            ++next;
        }
        if (MppFrame frame = decoder.take(20)) {
            if (mpp_frame_get_info_change(frame) != 0) {
                decoder.answer(frame);
                mpp_frame_deinit(&frame);
            } else {
                held.push_back(frame);
            }
        }
    }
    EXPECT_EQ(mpp_buffer_group_unused(decoder.group), 0);
    MPP_RET result = MPP_OK;
    while (next < units.size() && result == MPP_OK) {
        result = decoder.put(units[next]);
        next += result == MPP_OK ? 1 : 0;
    }
    EXPECT_EQ(result, MPP_ERR_BUFFER_FULL);
    RK_S64 shortTime = 20;
    EXPECT_EQ(decoder.mpi->control(decoder.ctx, MPP_SET_INPUT_TIMEOUT, &shortTime), MPP_OK);
    EXPECT_EQ(decoder.put(units[next]), MPP_ERR_BUFFER_FULL);
    EXPECT_EQ(decoder.take(0), nullptr);
    // One back, one more.
    mpp_frame_deinit(&held.front());
    MppFrame third = decoder.take(20000);
    ASSERT_NE(third, nullptr);
    EXPECT_EQ(decoder.take(0), nullptr);
    mpp_frame_deinit(&third);
    mpp_frame_deinit(&held.back());
    for (; next < units.size(); ++next) {
        decoder.feed(units[next]);
    }
    decoder.finish();
    EXPECT_EQ(decoder.shown.size(), units.size() - 3);
    EXPECT_EQ(decoder.maximumUsage, 2U * 64 * 48 * 2);
}

TEST(Avc, FramesOutlastTheDecoder) {
    const std::vector<Bytes> units = coded::encode(coded::Avc{});
    const std::vector<coded::Picture> expected = coded::decodeAvc(units);
    MppFrame frame = nullptr;
    {
        client::Avc decoder;
        for (std::size_t i = 0; i < 3; ++i) {
            ASSERT_EQ(decoder.put(units[i]), MPP_OK);
        }
        frame = decoder.take(20000);
        ASSERT_NE(frame, nullptr);
        decoder.answer(frame);
        mpp_frame_deinit(&frame);
        frame = decoder.take(20000);
        ASSERT_NE(frame, nullptr);
    }
    EXPECT_TRUE(client::look(frame).picture.y == expected.front().y);
    EXPECT_EQ(mpp_frame_deinit(&frame), MPP_OK);
}

TEST(Avc, TimeStampsTravelWithTheirPictures) {
    coded::Avc how;
    how.bFrames = 2;
    how.frames = 7;  // I P B B P B B in the order of decoding
    const std::vector<Bytes> units = coded::encode(how);
    ASSERT_EQ(units.size(), 7U);
    client::Avc decoder;
    const RK_S64 stamps[] = {0, 3, 1, 2, 6, 4, 5};
    for (std::size_t i = 0; i < units.size(); ++i) {
        decoder.feed(units[i], stamps[i] * 40);
        decoder.drain();
    }
    decoder.finish();
    ASSERT_EQ(decoder.shown.size(), 7U);
    for (std::size_t i = 0; i < 7; ++i) {
        EXPECT_EQ(decoder.shown[i].pts, static_cast<RK_S64>(i) * 40);
    }
}

TEST(Avc, GoesOnAfterTheEndOfAStream) {
    const std::vector<Bytes> units = coded::encode(coded::Avc{});
    client::Avc decoder;
    for (int round = 0; round < 2; ++round) {
        for (const Bytes& unit : units) {
            decoder.feed(unit);
        }
        decoder.ended = false;
        decoder.finish();
    }
    EXPECT_EQ(decoder.changes, 1) << "the size is the same";
    EXPECT_EQ(decoder.shown.size(), 2 * units.size());
}
