#include "control/task/msgvideo.h"

msgVideo::~msgVideo() {
    for (unsigned char*& plane : data) {
        delete[] plane;
        plane = nullptr;
    }
}
