// Draws the two pictures that a system image carries: the background of the version banners and
// the upgrade screen. Raw files of 1920 x 1080 pixels, three bytes each: red, green, blue, which is
// the order that has the right hues on the screen.
#include <opencv2/imgproc.hpp>

#include <cstdio>
#include <fstream>
#include <string>

namespace {

constexpr int width = 1920, height = 1080;

const cv::Scalar white(255, 255, 255);
const cv::Scalar lightGrey(200, 200, 200);

cv::Mat evening(const cv::Scalar& top, const cv::Scalar& bottom) {
    cv::Mat picture(height, width, CV_8UC3);
    for (int line = 0; line < height; ++line) {
        const double part = double(line) / (height - 1);
        picture.row(line).setTo(top * (1 - part) + bottom * part);
    }
    return picture;
}

void write(cv::Mat& picture, const std::string& text, int line, double scale,
           const cv::Scalar& colour, int thickness) {
    int below = 0;
    const cv::Size size = cv::getTextSize(text, cv::FONT_HERSHEY_DUPLEX, scale, thickness, &below);
    cv::putText(picture, text, {(width - size.width) / 2, line}, cv::FONT_HERSHEY_DUPLEX, scale,
                colour, thickness, cv::LINE_AA);
}

// A camera, a line, a screen.
void drawDevices(cv::Mat& picture) {
    cv::circle(picture, {560, 540}, 130, lightGrey, 10, cv::LINE_AA);
    cv::circle(picture, {560, 540}, 60, lightGrey, cv::FILLED, cv::LINE_AA);
    cv::circle(picture, {535, 515}, 14, white, cv::FILLED, cv::LINE_AA);
    cv::arrowedLine(picture, {740, 540}, {1040, 540}, lightGrey, 10, cv::LINE_AA, 0, 0.12);
    cv::rectangle(picture, {1090, 410}, {1450, 630}, lightGrey, 10, cv::LINE_AA);
    cv::line(picture, {1270, 630}, {1270, 680}, lightGrey, 10, cv::LINE_AA);
    cv::line(picture, {1190, 680}, {1350, 680}, lightGrey, 10, cv::LINE_AA);
}

// Fields by which colours on the screen can be judged: blue, green, red, grey, white.
void drawFields(cv::Mat& picture) {
    const cv::Scalar colours[] = {
        {255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {128, 128, 128}, {255, 255, 255}};
    int left = 760;
    for (const cv::Scalar& colour : colours) {
        cv::rectangle(picture, cv::Rect(left, 800, 64, 64), colour, cv::FILLED);
        left += 84;
    }
}

cv::Mat drawStartUp() {
    cv::Mat picture = evening({96, 48, 16}, {32, 16, 8});
    write(picture, "USB camera to HDMI", 250, 3.0, white, 4);
    drawDevices(picture);
    drawFields(picture);
    return picture;
}

cv::Mat drawUpgrade() {
    cv::Mat picture = evening({16, 56, 104}, {8, 16, 40});
    cv::rectangle(picture, {0, 140}, {width - 1, 156}, {0, 140, 255}, cv::FILLED);
    cv::rectangle(picture, {0, 924}, {width - 1, 940}, {0, 140, 255}, cv::FILLED);
    write(picture, "Upgrade in progress", 480, 4.0, white, 6);
    write(picture, "Please do not switch the device off.", 640, 2.0, lightGrey, 3);
    return picture;
}

// `drawn` is blue, green, red, as the drawing functions have it.
bool save(const cv::Mat& drawn, const std::string& path) {
    cv::Mat picture;
    cv::cvtColor(drawn, picture, cv::COLOR_BGR2RGB);
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(picture.data),
               std::streamsize(picture.total() * picture.elemSize()));
    if (file.flush())
        return true;
    std::fprintf(stderr, "draw-board-pictures: cannot write %s\n", path.c_str());
    return false;
}

}  // namespace

int main(int count, char** words) {
    if (count != 2) {
        std::fputs("usage: draw-board-pictures FOLDER\n", stderr);
        return 2;
    }
    const std::string folder = words[1];
    const bool saved = save(drawStartUp(), folder + "/startUpVersion_brivant.bin") &&
                       save(drawUpgrade(), folder + "/readyUpgradeDone_brivant.bin");
    return saved ? 0 : 1;
}
