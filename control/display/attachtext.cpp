#include "control/display/attachtext.h"

#include "control/display/picturefile.h"
#include "control/task/logline.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>

namespace {

constexpr int lineType = 8;  // every neighbour of a pixel counts as connected

}  // namespace

AttachText::AttachText(const std::string& path, const std::string& text, int width, int height,
                       int x, int y, int blue, int green, int red, double fontScale, int thickness,
                       unsigned char* output) {
    PictureFile file(path);
    logOut("file size: ", file.size());
    try {
        cv::Mat picture(height, width, CV_8UC3);
        const std::size_t bytes = picture.total() * picture.elemSize();
        if (!file.read(picture.data, bytes)) {
            return;
        }
        cv::putText(picture, text, cv::Point(x, y), cv::FONT_HERSHEY_SIMPLEX, fontScale,
                    cv::Scalar(blue, green, red, 0), thickness, lineType, false);
        std::copy_n(picture.data, bytes, output);
    } catch (const cv::Exception& error) {
        logErr("picture ", path, ": cannot draw '", text, "' on it: ", error.err);
    }
}
