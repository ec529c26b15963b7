// The table that mpp_create hands out.
#pragma once

#include <rockchip/rk_mpi.h>

namespace mpp {

MppApi apiCalls();

}  // namespace mpp
