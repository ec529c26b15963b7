// A camera's controls: values, limits, what is inactive because an automatic mode rules it.
// Functions return 0 or -errno as the ioctl of the same purpose. Loop thread only.
#pragma once

#include "board/daemon/scenario.h"

#include <linux/videodev2.h>

#include <cstdint>
#include <map>
#include <vector>

namespace board {

struct ControlChange {
    std::uint32_t id;
    std::uint32_t changes;  // V4L2_EVENT_CTRL_CH_...
};

class CameraControls {
  public:
    explicit CameraControls(const std::vector<CameraControl>& described);

    int query(v4l2_query_ext_ctrl& query) const;  // the id may carry NEXT flags
    int query(v4l2_queryctrl& query) const;
    int menu(v4l2_querymenu& entry) const;

    int get(v4l2_control& control) const;
    int set(v4l2_control& control, std::vector<ControlChange>& changed);
    // `request` is VIDIOC_G_EXT_CTRLS, VIDIOC_S_EXT_CTRLS or VIDIOC_TRY_EXT_CTRLS. header.error_idx
    // and the items are meant to reach the caller also on failure.
    int extended(std::uint32_t request, v4l2_ext_controls& header,
                 std::vector<v4l2_ext_control>& items, std::vector<ControlChange>& changed);

    // The camera says so itself: nobody is told.
    void store(std::uint32_t id, std::int64_t value);
    bool exists(std::uint32_t id) const { return items_.count(id) != 0; }
    bool isClass(std::uint32_t id) const;
    // The event that says how the control stands now.
    v4l2_event_ctrl event(const ControlChange& change) const;

  private:
    struct Item {
        CameraControl control;
        std::uint32_t master = 0;  // 0: none
        std::int64_t masterManual = 0;
    };
    using Values = std::map<std::uint32_t, std::int64_t>;

    void addClasses();
    std::uint32_t flags(const Item& item) const;
    int checkAccess(std::uint32_t request, const std::vector<v4l2_ext_control>& items,
                    const v4l2_ext_control& wanted) const;
    int read(const v4l2_ext_controls& header, std::vector<v4l2_ext_control>& items,
             std::uint32_t* failed) const;
    int adjust(const Item& item, std::int32_t& value) const;
    void commit(const Values& values, std::vector<ControlChange>& changed);

    std::map<std::uint32_t, Item> items_;  // ascending, as NEXT walks them
};

}  // namespace board
