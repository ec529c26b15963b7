#include "control/supervise/updatecontrol.h"

#include "control/display/displaydrm.h"
#include "control/task/firstline.h"
#include "control/task/logline.h"
#include "control/task/shell.h"

#include <unistd.h>

#include <chrono>
#include <thread>

namespace {

constexpr int versionMajor = 5;
constexpr int versionMinor = 22;
constexpr char versionFile[] = "/userdata/version";
constexpr char upgradeMarker[] = "/usr/bin/updateStart";
constexpr std::chrono::seconds watchInterval{1};
constexpr int temperatureRounds = 59;

}  // namespace

UpdateControl::UpdateControl() {
    recordVersion();
    activate(1);
    std::this_thread::sleep_for(watchInterval);
}

void UpdateControl::recordVersion() {
    const std::string current = std::to_string(versionMajor) + "." + std::to_string(versionMinor);
    if (access(versionFile, F_OK) != 0) {
        runShell(std::string("touch ") + versionFile);
        lastVersion = current;
    } else {
        lastVersion = readFirstLine(versionFile);
    }
    logOut("old version : ", lastVersion);
    logOut("version : ", current);
    version = current;
    // No blank before the arrow: the file holds the version and a line end, nothing else.
    runShell("echo " + version + "> " + versionFile);
    runShell("sync");
}

int UpdateControl::svc() {
    setThreadName("UpdateControl");
    int rounds = 0;
    while (running != 0) {
        if (access(upgradeMarker, F_OK) == 0) {
            DisplayDrm::startUpgradeScreen();
        }
        std::this_thread::sleep_for(watchInterval);
        if (++rounds > temperatureRounds) {
            rounds = 0;
            printTemperatures();
        }
    }
    logOut("UpdateControl", "svc", " normal stop!");
    return 0;
}

void UpdateControl::printTemperatures() {
    runShell("echo cpu0: ");
    runShell("cat /sys/class/thermal/thermal_zone0/temp");
    runShell("echo cpu1: ");
    runShell("cat /sys/class/thermal/thermal_zone1/temp");
}
