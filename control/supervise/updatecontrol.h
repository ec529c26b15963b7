// Keeps the version file, watches for an upgrade, reports temperatures.
#pragma once

#include "control/supervise/versiontext.h"
#include "control/task/taskbase.h"

// The first object of the process: its constructor writes the first lines of the log and the
// version file, starts its thread and gives it a second.
class UpdateControl final : public TaskBase, public VersionText {
  public:
    UpdateControl();

    // Once a second: an upgrade that has begun is told to the display. Once a minute: temperatures.
    int svc() override;

  private:
    static void recordVersion();
    static void printTemperatures();
};
