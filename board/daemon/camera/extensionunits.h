// A camera's extension units, asked through the driver's control query. Loop thread only.
#pragma once

#include "board/daemon/device.h"
#include "board/daemon/ptzdescription.h"

#include <linux/uvcvideo.h>

#include <cstdint>
#include <vector>

namespace board {

class ExtensionUnits {
  public:
    explicit ExtensionUnits(const std::vector<ExtensionUnitDescription>& described);

    // UVCIOC_CTRL_QUERY: 0 or -errno, in the driver's order of checks.
    int query(const uvc_xu_control_query& query, NestedBlock& data);
    bool asleep() const { return asleep_; }
    bool tracking() const;

  private:
    struct Control {
        UnitControl described;
        std::vector<std::uint8_t> value;
    };
    struct Unit {
        std::uint8_t id;
        std::vector<Control> controls;
    };
    Control* find(std::uint8_t unit, std::uint8_t selector);
    void write(Control& control, const NestedBlock& data);

    std::vector<Unit> units_;
    bool asleep_ = false;
};

}  // namespace board
