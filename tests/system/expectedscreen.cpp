#include "tests/system/expectedscreen.h"

extern "C" {
#include <libswscale/swscale.h>
}
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace {

constexpr int pictureWidth = 1920, pictureHeight = 1080;

std::uint8_t clamped(double value) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
}

cv::Mat pixelsOf(const support::Rgb& picture) {
    return {static_cast<int>(picture.height), static_cast<int>(picture.width), CV_8UC3,
            const_cast<std::uint8_t*>(picture.bytes.data())};
}

cv::Mat luma(const support::Rgb& picture, std::uint32_t firstLine) {
    cv::Mat grey;
    cv::cvtColor(
        pixelsOf(picture).rowRange(static_cast<int>(firstLine), static_cast<int>(picture.height)),
        grey, cv::COLOR_RGB2GRAY);
    grey.convertTo(grey, CV_32F);
    return grey;
}

cv::Mat averaged(const cv::Mat& values) {
    cv::Mat result;
    cv::boxFilter(values, result, CV_32F, {8, 8});
    return result;
}

double similarity(const cv::Mat& one, const cv::Mat& other) {
    const double c1 = 6.5025, c2 = 58.5225;  // (0.01 * 255)^2, (0.03 * 255)^2
    const cv::Mat meanOne = averaged(one), meanOther = averaged(other);
    const cv::Mat product = meanOne.mul(meanOther);
    const cv::Mat squareOne = meanOne.mul(meanOne), squareOther = meanOther.mul(meanOther);
    const cv::Mat spreadOne = averaged(one.mul(one)) - squareOne;
    const cv::Mat spreadOther = averaged(other.mul(other)) - squareOther;
    const cv::Mat together = averaged(one.mul(other)) - product;
    const cv::Mat above = (2 * product + c1).mul(2 * together + c2);
    const cv::Mat below = (squareOne + squareOther + c1).mul(spreadOne + spreadOther + c2);
    cv::Mat quotient;
    cv::divide(above, below, quotient);
    return cv::mean(quotient)[0];
}

bool sameSize(const support::Rgb& seen, const support::Rgb& expected) {
    EXPECT_EQ(seen.width, expected.width);
    EXPECT_EQ(seen.height, expected.height);
    return seen.width == expected.width && seen.height == expected.height;
}

}  // namespace

support::Rgb expectedScreen(const std::string& pictureFile, const std::string& text, double scale,
                            std::uint32_t width, std::uint32_t height) {
    std::string content = support::readFile(pictureFile);
    support::Rgb screen;
    if (content.size() != std::size_t{pictureWidth} * pictureHeight * 3) {
        ADD_FAILURE() << pictureFile << " has " << content.size() << " bytes";
        return screen;
    }
    const cv::Mat drawn(pictureHeight, pictureWidth, CV_8UC3, content.data());
    cv::putText(drawn, text, {30, 1050}, cv::FONT_HERSHEY_SIMPLEX, scale, cv::Scalar(255, 255, 255),
                4);
    screen.width = width;
    screen.height = height;
    const int w = static_cast<int>(width), h = static_cast<int>(height);
    SwsContext* scaler =
        sws_getContext(pictureWidth, pictureHeight, AV_PIX_FMT_BGR24, w, h, AV_PIX_FMT_YUV444P,
                       SWS_BILINEAR | SWS_ACCURATE_RND, nullptr, nullptr, nullptr);
    cv::Mat y(h, w, CV_8UC1), u(h, w, CV_8UC1), v(h, w, CV_8UC1);
    const std::uint8_t* from[] = {drawn.data};
    const int fromLine[] = {pictureWidth * 3};
    std::uint8_t* to[] = {y.data, u.data, v.data};
    const int toLine[] = {w, w, w};
    EXPECT_EQ(sws_scale(scaler, from, fromLine, 0, pictureHeight, to, toLine), h);
    sws_freeContext(scaler);
    screen.bytes.reserve(std::size_t{width} * height * 3);
    for (int i = 0; i < w * h; ++i) {
        const double luma = 1.164384 * (y.data[i] - 16);
        const double blueness = v.data[i] - 128, redness = u.data[i] - 128;  // changed places
        screen.bytes.push_back(clamped(luma + 1.596027 * redness));
        screen.bytes.push_back(clamped(luma - 0.391762 * blueness - 0.812968 * redness));
        screen.bytes.push_back(clamped(luma + 2.017232 * blueness));
    }
    return screen;
}

double likeness(const support::Rgb& seen, const support::Rgb& expected, std::uint32_t firstLine) {
    return sameSize(seen, expected) ? similarity(luma(seen, firstLine), luma(expected, firstLine))
                                    : 0;
}

double distance(const support::Rgb& seen, const support::Rgb& expected) {
    return sameSize(seen, expected) ? cv::norm(pixelsOf(seen), pixelsOf(expected), cv::NORM_L1) /
                                          double(seen.bytes.size())
                                    : 255;
}
