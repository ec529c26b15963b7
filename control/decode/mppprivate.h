// What the decoder library has but does not declare in its public headers. Some builds of it do not
// export these names: ask for their address before use.
#pragma once

#include <rockchip/rk_mpi.h>

extern "C" {
__attribute__((weak)) RK_S32 mpp_env_set_u32(const char* name, RK_U32 value);
extern __attribute__((weak)) RK_U32 mpp_debug;
}
