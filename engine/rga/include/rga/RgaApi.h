// The engine for C programs: one engine in the process, results as those of RockchipRga.
#pragma once

#include <rga/drmrga.h>

#ifdef __cplusplus
extern "C" {
#endif

int c_RkRgaInit(void);
void c_RkRgaDeInit(void);
void c_RkRgaGetContext(void** ctx);
int c_RkRgaBlit(rga_info_t* src, rga_info_t* dst, rga_info_t* src1);
int c_RkRgaColorFill(rga_info_t* dst);
int c_RkRgaFlush(void);

#ifdef __cplusplus
}
#endif

#define RgaInit(ctx) (c_RkRgaInit(), c_RkRgaGetContext(ctx))
#define RgaDeInit(ctx) ((void)(ctx), c_RkRgaDeInit())
#define RgaBlit(src, dst, src1) c_RkRgaBlit(src, dst, src1)
#define RgaCollorFill(dst) c_RkRgaColorFill(dst)
#define RgaFlush() c_RkRgaFlush()
