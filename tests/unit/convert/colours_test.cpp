// What comes out of the real engine: colours must arrive as the colours they were.
#include "control/convert/colorspacetransform.h"
#include "control/convert/rkrga.h"
#include "control/task/fourcc.h"

#include <gtest/gtest.h>
#include <functional>
#include <vector>

namespace {

struct Yuv {
    int y, u, v;
};

// Limited range, BT.601.
const Yuv fields[3] = {{82, 90, 240}, {145, 54, 34}, {41, 240, 110}};
const char* const fieldNames[3] = {"red", "green", "blue"};

constexpr unsigned width = 192, height = 96;  // a field is a third of the width

const Yuv& colourAt(unsigned x, unsigned pictureWidth) {
    return fields[x * 3 / pictureWidth];
}

unsigned char byte(int value) {
    return static_cast<unsigned char>(value);
}

std::vector<unsigned char> yuyvPicture() {
    std::vector<unsigned char> picture;
    for (unsigned y = 0; y < height; ++y) {
        for (unsigned x = 0; x < width; x += 2) {
            const Yuv& colour = colourAt(x, width);
            picture.insert(picture.end(),
                           {byte(colour.y), byte(colour.u), byte(colour.y), byte(colour.v)});
        }
    }
    return picture;
}

std::vector<unsigned char> lumaPlane() {
    std::vector<unsigned char> picture;
    for (unsigned i = 0; i < width * height; ++i) {
        picture.push_back(byte(colourAt(i % width, width).y));
    }
    return picture;
}

std::vector<unsigned char> semiPlanarPicture(unsigned chromaLines) {
    std::vector<unsigned char> picture = lumaPlane();
    for (unsigned i = 0; i < chromaLines * width; i += 2) {
        const Yuv& colour = colourAt(i % width, width);
        picture.push_back(byte(colour.u));
        picture.push_back(byte(colour.v));
    }
    return picture;
}

std::vector<unsigned char> planarPicture() {
    std::vector<unsigned char> picture = lumaPlane();
    for (int Yuv::*component : {&Yuv::u, &Yuv::v}) {
        for (unsigned i = 0; i < height / 2 * width / 2; ++i) {
            picture.push_back(byte(colourAt(i % (width / 2), width / 2).*component));
        }
    }
    return picture;
}

struct Source {
    const char* name;
    std::uint32_t format;
    std::function<std::vector<unsigned char>()> picture;
};

// Shown as the name of the test.
void PrintTo(const Source& source, std::ostream* out) {
    *out << source.name;
}

class Colours : public testing::TestWithParam<Source> {
  protected:
    // A destination with lines 64-byte aligned, as a display has them, and a rim that must stay.
    void convertTo(unsigned outWidth, unsigned outHeight) {
        pitch = (outWidth + 63) & ~63U;
        out.assign(pitch * outHeight * 3 / 2 + rim, 0xA5);
        std::vector<unsigned char> picture = GetParam().picture();
        unsigned char* planes[3] = {picture.data(), nullptr, nullptr};
        msgVideo message;
        message.outData[0] = out.data();
        message.width = outWidth;
        message.height = outHeight;
        message.virWidth = pitch;
        message.virHeight = outHeight;
        const ColorSpaceTransform transform(
            static_cast<int>(GetParam().format), static_cast<int>(fourccOf("NV12")),
            static_cast<int>(outWidth), static_cast<int>(outHeight));
        ASSERT_TRUE(transform.receiveImage(planes, nullptr, width, height, &message));
    }

    void expectFields(unsigned outWidth, unsigned outHeight) {
        for (unsigned field = 0; field < 3; ++field) {
            SCOPED_TRACE(fieldNames[field]);
            const unsigned x = (outWidth * (2 * field + 1) / 6) & ~1U;
            const unsigned y = (outHeight / 2) & ~1U;
            const unsigned char* chroma = &out[pitch * outHeight + pitch * (y / 2) + x];
            EXPECT_NEAR(out[pitch * y + x], fields[field].y, 3);
            EXPECT_NEAR(chroma[0], fields[field].u, 3);
            EXPECT_NEAR(chroma[1], fields[field].v, 3);
        }
        for (unsigned i = 0; i < rim; ++i) {
            ASSERT_EQ(out[out.size() - 1 - i], 0xA5);
        }
    }

    static constexpr unsigned rim = 4096;
    RkRga engine;
    unsigned pitch = 0;
    std::vector<unsigned char> out;
};

}  // namespace

TEST_P(Colours, ComeOutAsTheyWentIn) {
    convertTo(width, height);
    expectFields(width, height);
}

TEST_P(Colours, SurviveScalingToADisplayWithWiderLines) {
    convertTo(1366, 768);
    expectFields(1366, 768);
}

INSTANTIATE_TEST_SUITE_P(
    Sources, Colours,
    testing::Values(Source{"YUYV", fourccOf("YUYV"), yuyvPicture},
                    Source{"YU12", fourccOf("YU12"), planarPicture},
                    Source{"NV12", fourccOf("NV12"), [] { return semiPlanarPicture(height / 2); }},
                    Source{"NV16", fourccOf("NV16"), [] { return semiPlanarPicture(height); }}),
    [](const testing::TestParamInfo<Source>& row) { return std::string(row.param.name); });
