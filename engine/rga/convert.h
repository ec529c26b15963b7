// Steps of a blit on planes: scaling, turning, pairing of chroma, conversion to and from RGB.
#pragma once

#include "engine/rga/blit.h"
#include "engine/rga/scratch.h"
#include "engine/rga/surface.h"

namespace rga {

// Copies where the sizes agree. Neither plane may be empty.
void scalePlane(const Plane& source, const Plane& destination, Scratch& scratch);

// Chroma of `source` into the chroma of `destination`, which has its own size and pairing.
void scaleChroma(const YuvPicture& source, const YuvPicture& destination, Scratch& scratch);

// `source` turned, in scratch memory, with separate chroma planes.
YuvPicture turnYuv(const YuvPicture& source, const Transform& transform, Scratch& scratch);

// `source` (bgr888 or rgb888) as 4:2:0 with separate planes of the same size, in scratch memory.
YuvPicture yuvFromRgb(const Surface& source, Scratch& scratch);

void rgb565FromYuv(const YuvPicture& source, const Plane& destination, Scratch& scratch);
void rgb565FromRgb(const Surface& source, const Transform& transform, const Plane& destination,
                   Scratch& scratch);

}  // namespace rga
