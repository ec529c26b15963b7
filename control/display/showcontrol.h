// The display task: keeps the page flips going and reports their rate.
#pragma once

#include "control/display/displaydrm.h"
#include "control/task/taskbase.h"

#include <memory>

class ShowControl final : public TaskBase {
  public:
    // Sets the display to `mode`; whether that worked is told by isConnected().
    explicit ShowControl(decInfo mode);
    ~ShowControl() override;

    int svc() override;
    // Ends and joins the task, then empties the frame ring; 0.
    int close() override;

    static bool findDisplayDevice();  // whether a usable display is attached
    int isConnected();                // 1 while the display in use is connected

  private:
    std::unique_ptr<DisplayDrm> display;
};
