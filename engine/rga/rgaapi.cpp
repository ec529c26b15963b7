#include "rga/RgaApi.h"

#include "rga/RockchipRga.h"

RGA_SINGLETON_STATIC_INSTANCE(RockchipRga);

int c_RkRgaInit(void) {
    return RockchipRga::get().RkRgaInit();
}

void c_RkRgaDeInit(void) {
    RockchipRga::get().RkRgaDeInit();
}

void c_RkRgaGetContext(void** ctx) {
    RockchipRga::get().RkRgaGetContext(ctx);
}

int c_RkRgaBlit(rga_info_t* src, rga_info_t* dst, rga_info_t* src1) {
    return RockchipRga::get().RkRgaBlit(src, dst, src1);
}

int c_RkRgaColorFill(rga_info_t* dst) {
    return RockchipRga::get().RkRgaCollorFill(dst);
}

int c_RkRgaFlush(void) {
    return RockchipRga::get().RkRgaFlush();
}
