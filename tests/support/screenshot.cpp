#include "tests/support/screenshot.h"

#include <gtest/gtest.h>
#include <png.h>

namespace support {

Rgb takeScreenshot(Board& board) {
    const std::string path = board.folder() + "/screen.png";
    board.order(R"({"order":"picture","path":")" + path + R"("})");
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    Rgb picture;
    if (png_image_begin_read_from_file(&image, path.c_str()) == 0) {
        ADD_FAILURE() << path << ": " << image.message;
        return picture;
    }
    image.format = PNG_FORMAT_RGB;
    picture.width = image.width;
    picture.height = image.height;
    picture.bytes.resize(PNG_IMAGE_SIZE(image));
    EXPECT_NE(png_image_finish_read(&image, nullptr, picture.bytes.data(), 0, nullptr), 0);
    return picture;
}

}  // namespace support
