// A picture file with a line of text on it, and files that are no such picture.
#include "control/display/attachtext.h"

#include "tests/unit/display/fakefiles.h"
#include "tests/unit/task/printed.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <filesystem>
#include <opencv2/imgproc.hpp>

namespace {

constexpr int width = 160, height = 90;
constexpr std::size_t pictureSize = static_cast<std::size_t>(width) * height * 3;
constexpr char path[] = "/usr/bin/picture.bin";
constexpr unsigned char untouched = 77;

class TextOnAPicture : public testing::Test {
  protected:
    // Every byte differs from its neighbours.
    static std::string content(std::size_t bytes) {
        std::string text(bytes, '\0');
        for (std::size_t i = 0; i < bytes; ++i) {
            text[i] = static_cast<char>(i * 7 % 251);
        }
        return text;
    }
    // What is printed, on both outputs.
    std::string attach(const std::string& text, int pictureWidth = width,
                       int pictureHeight = height, int thickness = 2) {
        testing::internal::CaptureStderr();
        const std::string out = printedBy([&] {
            AttachText(path, text, pictureWidth, pictureHeight, 10, 60, 250, 120, 30, 0.8,
                       thickness, output.data());
        });
        errors = testing::internal::GetCapturedStderr();
        return out;
    }
    bool outputUntouched() const {
        return std::all_of(output.begin(), output.end(),
                           [](unsigned char byte) { return byte == untouched; });
    }

    FakeFiles files;
    std::vector<unsigned char> output = std::vector<unsigned char>(pictureSize, untouched);
    std::string errors;
};

}  // namespace

TEST_F(TextOnAPicture, IsThePictureWithTheText) {
    const std::string picture = content(pictureSize);
    files.write(path, picture);
    EXPECT_EQ(attach("V5.22"), "file size: " + std::to_string(pictureSize) + "\n");
    EXPECT_EQ(errors, "");
    std::string drawn = picture;
    cv::Mat expected(height, width, CV_8UC3, drawn.data());
    cv::putText(expected, "V5.22", {10, 60}, 0, 0.8, cv::Scalar(250, 120, 30), 2, 8, false);
    EXPECT_TRUE(std::equal(output.begin(), output.end(), expected.data));
    EXPECT_NE(drawn, picture);
}

TEST_F(TextOnAPicture, ColoursAreBlueGreenRedAndTheTextStandsAboveItsOrigin) {
    files.write(path, std::string(pictureSize, '\0'));
    attach("H");
    int left = width, right = 0, top = height, bottom = 0;
    for (int i = 0; i < width * height; ++i) {
        const unsigned char* pixel = &output[static_cast<std::size_t>(i) * 3];
        if (pixel[0] != 0 || pixel[1] != 0 || pixel[2] != 0) {
            EXPECT_EQ(pixel[0], 250);
            EXPECT_EQ(pixel[1], 120);
            EXPECT_EQ(pixel[2], 30);
            left = std::min(left, i % width);
            right = std::max(right, i % width);
            top = std::min(top, i / width);
            bottom = std::max(bottom, i / width);
        }
    }
    EXPECT_NEAR(left, 13, 3);
    EXPECT_NEAR(bottom, 60, 2);
    EXPECT_NEAR(top, 60 - 17, 3) << "21 units high at scale 0.8";
    EXPECT_GT(right, left);
}

TEST_F(TextOnAPicture, WithoutTextIsThePicture) {
    const std::string picture = content(pictureSize);
    files.write(path, picture);
    attach("");
    EXPECT_EQ(std::string(output.begin(), output.end()), picture);
}

TEST_F(TextOnAPicture, TextThatLeavesThePictureIsCut) {
    files.write(path, content(pictureSize));
    attach(std::string(255, 'W') + "\x01\xff\xc3");
    EXPECT_EQ(errors, "");
    EXPECT_FALSE(outputUntouched());
}

TEST_F(TextOnAPicture, AMissingFileIsOneLine) {
    EXPECT_EQ(attach("V"), "file size: -1\n");
    EXPECT_EQ(errors,
              "picture /usr/bin/picture.bin: cannot be opened: 2, No such file or directory; 43200 "
              "bytes are expected there, nothing is shown of it\n");
    EXPECT_TRUE(outputUntouched());
}

TEST_F(TextOnAPicture, AFileOfAnotherSizeIsOneLine) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, pictureSize / 2, pictureSize - 1,
                                   pictureSize + 1, pictureSize * 4}) {
        files.write(path, content(size));
        EXPECT_EQ(attach("V"), "file size: " + std::to_string(size) + "\n");
        EXPECT_EQ(errors, "picture /usr/bin/picture.bin: " + std::to_string(size) +
                              " bytes, of which 0 were read; 43200 are expected, nothing is shown "
                              "of it\n");
        EXPECT_TRUE(outputUntouched()) << size;
    }
}

TEST_F(TextOnAPicture, AFolderOrAPipeIsOneLine) {
    std::filesystem::create_directory(files.real(path));
    attach("V");
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
    std::filesystem::remove(files.real(path));
    ASSERT_EQ(mkfifo(files.real(path).c_str(), 0666), 0);
    EXPECT_EQ(attach("V"), "file size: -1\n");
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
    EXPECT_TRUE(outputUntouched());
}

TEST_F(TextOnAPicture, ArgumentsThatCannotBeDrawnChangeNothing) {
    files.write(path, content(pictureSize));
    attach("V", width, height, -1);
    EXPECT_NE(errors.find("picture /usr/bin/picture.bin: cannot draw 'V' on it: "),
              std::string::npos)
        << errors;
    attach("V", -width, height);
    EXPECT_NE(errors.find("cannot draw"), std::string::npos) << errors;
    files.write(path, "");
    attach("V", 0, 0);
    EXPECT_TRUE(outputUntouched());
}
