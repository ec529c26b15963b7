// The 2D engine: scaling, colour conversion and rotation of one picture into another.
#pragma once

#include <rga/RgaSingleton.h>
#include <rga/drmrga.h>
#include <cerrno>
#include <cstdint>

class RockchipRga;
// Defined in the library.
template <>
std::mutex Singleton<RockchipRga>::sLock;
template <>
RockchipRga* Singleton<RockchipRga>::sInstance;

class RockchipRga : public Singleton<RockchipRga> {
  public:
    static inline RockchipRga& get() { return getInstance(); }

    RockchipRga();
    // Not virtual: never delete a derived object through this class. Defined in the library, where
    // programs built against the board's header look for it.
    ~RockchipRga();  // NOLINT(performance-trivially-destructible)

    // Nothing to open in software; always 0.
    int RkRgaInit();
    void RkRgaDeInit();
    // What programs pass around as the engine's handle: this object. A null `ctx` is ignored.
    void RkRgaGetContext(void** ctx);
    bool RkRgaIsReady();

    // Scales and converts src's rectangle into dst's. 0 on success; otherwise errno is set, its
    // negative is returned and the destination is untouched: EINVAL for a null picture, a rectangle
    // that is empty, beyond 8192 or outside its strides, or a format or rotation that does not
    // exist; ENOTSUP for blending, a second source or a pair without a conversion; ENOMEM.
    // May run on any number of threads at once, also on one object.
    int RkRgaBlit(rga_info* src, rga_info* dst, rga_info* src1);
    // Fills dst's rectangle with dst's color. Errors as above.
    int RkRgaCollorFill(rga_info* dst);
    // Every call is complete when it returns; always 0.
    int RkRgaFlush();
};
