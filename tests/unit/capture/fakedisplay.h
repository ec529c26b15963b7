// A display inside the test process, as libdrm reports it (its fetching calls are wrapped).
#pragma once

#include "board/daemon/scenario.h"

#include <xf86drmMode.h>

#include <vector>

// Installs itself as the process's only display, connected. One thread only.
class FakeDisplay {
  public:
    explicit FakeDisplay(const std::vector<board::DisplayMode>& modes);
    ~FakeDisplay();
    FakeDisplay(const FakeDisplay&) = delete;
    FakeDisplay& operator=(const FakeDisplay&) = delete;

    static FakeDisplay* current();
    std::vector<drmModeModeInfo>& modes() { return modes_; }

  private:
    std::vector<drmModeModeInfo> modes_;
};
