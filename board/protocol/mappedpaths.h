// Files and folders that the run folder replaces.
#pragma once

namespace board::wire {

constexpr const char* mappedPaths[] = {
    "/userdata",
    "/proc/asound",
    "/sys/class/thermal",
    "/sys/dev/char",
    "/etc/uvc_param.conf",
    "/usr/bin/startupflag",
    "/usr/bin/updateStart",
    "/usr/bin/startUpVersion_brivant.bin",
    "/usr/bin/readyUpgradeDone_brivant.bin",
};

}  // namespace board::wire
