// The process's 2D engine.
#pragma once

#include <rga/RockchipRga.h>
#include <atomic>

// One object for the process, made by the supervisor before any picture is converted. The engine
// takes calls from several threads at once.
class RkRga : public RockchipRga {
  public:
    RkRga();
    ~RkRga();

    static RkRga* getRgaDev();  // null while there is none

    // Scales and converts one picture into another; formats are the engine's codes, sizes and
    // strides are in pixels. False, after one line, when the engine refuses.
    bool rgaColorSpaceSwitch(unsigned char* src, int srcWidth, int srcHeight, int srcWidthStride,
                             int srcHeightStride, int srcFormat, unsigned char* dst, int dstWidth,
                             int dstHeight, int dstWidthStride, int dstHeightStride, int dstFormat);
    // The same with a rotation, one of the engine's transform codes.
    bool rgaRotaSpaceSwitch(unsigned char* src, int srcWidth, int srcHeight, int srcWidthStride,
                            int srcHeightStride, int srcFormat, unsigned char* dst, int dstWidth,
                            int dstHeight, int dstWidthStride, int dstHeightStride, int dstFormat,
                            int rotation);

  private:
    bool blit(rga_info_t& src, rga_info_t& dst);

    static std::atomic<RkRga*> rgadev;
};
