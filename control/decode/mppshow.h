// From a frame of the hardware decoder to the display's ring.
#pragma once

#include "control/display/displaydrm.h"

#include <rockchip/rk_mpi.h>
#include <cstdint>

// A decoded picture; the frame keeps its memory.
struct MppPicture {
    RK_U32 width = 0, height = 0;  // in pixels
    RK_U32 format = 0;             // an MppFrameFormat without its flags
    MppBuffer buffer = nullptr;
    std::uint32_t fourcc = 0;  // set by nameMppFormat
};

// False for no frame, and with one line for a frame without memory.
bool readMppFrame(MppFrame frame, MppPicture& picture);

// False, with one line, for a format that is not shown and for a picture that its memory does not
// hold.
bool nameMppFormat(MppPicture& picture);

// Converts the picture into the display's next buffer and queues it. `pts` goes with the picture,
// `queuePts` is what the display paces by, both in ms.
void showMppPicture(DisplayDrm& display, const MppPicture& picture, double pts, double queuePts);
