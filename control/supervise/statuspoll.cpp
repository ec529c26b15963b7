#include "control/supervise/statuspoll.h"

#include "control/camera/obsbot.h"
#include "control/capture/capturemedia.h"
#include "control/convert/rkrga.h"
#include "control/display/showcontrol.h"
#include "control/task/logline.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace {

constexpr std::chrono::microseconds pollPeriod_us(50000);
constexpr int videoNodes = 30;
constexpr int memoryReportTicks = 5999;  // about every 300 seconds of play

}  // namespace

StatusPoll::StatusPoll() : rga(new RkRga()) {
    activate(1);
    std::this_thread::sleep_for(std::chrono::seconds(1));
}

StatusPoll::~StatusPoll() {
    wait();
}

int StatusPoll::svc() {
    setThreadName("StatusPoll");
    for (;;) {
        pollOnce();
    }
}

void StatusPoll::pollOnce() {
    switch (statue) {
        case STATUE_POLL_NODEVICE:
            return waitForDevices();
        case STATUE_POOL_OPENFAID:
            return waitForUnplugOrWakeUp();
        case STATUE_POOL_OPENDEVICE:
            return openDevice();
        case STATUE_POOL_PLAY:
            return watchPlay();
        case STATUE_POOL_PLAYERR:
            return dropPipeline(STATUE_POOL_OPENFAID,
                                "statue: STATUE_POOL_PLAYERR ==> STATUE_POOL_OPENFAID");
        case STATUE_POOL_DISCONNECT:
            return dropPipeline(STATUE_POLL_NODEVICE,
                                "statue: STATUE_POOL_PLAYERR ==> STATUE_POLL_NODEVICE");
    }
}

int StatusPoll::checkIsDeviceExist() {
    for (int number = 0; number < videoNodes; ++number) {
        std::string path = "/dev/video" + std::to_string(number);
        if (access(path.c_str(), F_OK) == 0) {
            devicePath = std::move(path);
            return 1;
        }
    }
    return 0;
}

StatusPoll::NodeIdentity StatusPoll::identityOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == -1) {
        return {};
    }
    return {status.st_rdev, status.st_ino};
}

bool StatusPoll::isReplugged() const {
    const NodeIdentity found = identityOf(devicePath);
    if (found.inode == 0) {
        return false;  // gone since the probe: the next round sees that
    }
    return found.device != usedNode.device || found.inode != usedNode.inode;
}

void StatusPoll::waitForDevices() {
    ObsBot::dormantStatus = 0;
    dropObsBot();
    if (checkIsDeviceExist() == 1 && ShowControl::findDisplayDevice()) {
        statue = STATUE_POOL_OPENDEVICE;
        logOut("statue: STATUE_POLL_NODEVICE ==> STATUE_POOL_OPENDEVICE");
        return;
    }
    std::this_thread::sleep_for(pollPeriod_us);
}

void StatusPoll::openDevice() {
    if (captureMedia != nullptr) {
        statue = STATUE_POOL_OPENFAID;
        logOut("statue: STATUE_POOL_OPENDEVICE ==> STATUE_POOL_OPENFAID");
        return;
    }
    dropObsBot();
    // What replaces the node while the camera settles is met as a replug if it fails.
    usedNode = identityOf(devicePath);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    captureMedia = new CaptureMedia(devicePath);
    if (captureMedia->startPlayMedia()) {
        statue = STATUE_POOL_PLAY;
        logOut("statue: STATUE_POOL_OPENDEVICE ==> STATUE_POOL_PLAY");
        return;
    }
    dropPipeline(STATUE_POOL_OPENFAID, "statue: STATUE_POOL_OPENDEVICE ==> STATUE_POOL_OPENFAID");
}

void StatusPoll::watchPlay() {
    const int error = captureMedia->getCaptureError();
    if (error == 1) {
        statue = STATUE_POOL_PLAYERR;
        logOut("statue: STATUE_POOL_PLAY ==> STATUE_POOL_PLAYERR");
        return;
    }
    if (error == 2) {
        statue = STATUE_POOL_DISCONNECT;
        logOut("statue: STATUE_POOL_PLAY ==> STATUE_POOL_DISCONNECT");
        return;
    }
    std::this_thread::sleep_for(pollPeriod_us);
    if (++memTick > memoryReportTicks) {
        memTick = 0;
        debugMem();
    }
}

void StatusPoll::dropPipeline(Statue next, const char* line) {
    if (captureMedia == nullptr) {
        return;
    }
    delete captureMedia;
    captureMedia = nullptr;
    statue = next;
    logOut(line);
}

void StatusPoll::waitForUnplugOrWakeUp() {
    // A camera that re-enumerates as it wakes up is no other camera.
    const bool awake = ObsBot::dormantStatus == 0 && obsBot == nullptr;
    if (checkIsDeviceExist() == 0 || (awake && isReplugged())) {
        statue = STATUE_POLL_NODEVICE;
        logOut("statue: STATUE_POOL_OPENFAID ==> STATUE_POLL_NODEVICE");
    } else if (ObsBot::dormantStatus == 0 || obsBot != nullptr) {
        std::this_thread::sleep_for(pollPeriod_us);
    } else {
        obsBot = new ObsBot(devicePath);
    }
    if (ObsBot::dormantStatus == 1 || obsBot == nullptr) {
        return;
    }
    statue = STATUE_POLL_NODEVICE;
    logOut("statue: STATUE_POOL_OPENFAID ==> STATUE_POLL_NODEVICE(WAKE UP)");
}

void StatusPoll::dropObsBot() {
    delete obsBot;
    obsBot = nullptr;
}
