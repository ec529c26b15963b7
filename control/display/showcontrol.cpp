#include "control/display/showcontrol.h"

#include "control/task/logline.h"
#include "control/task/monotonictime.h"

#include <thread>

namespace {

constexpr int displayCpus = 32;  // CPU 5
constexpr double reportInterval_ms = 30000.0;
constexpr int reportInterval_s = 30;

}  // namespace

ShowControl::ShowControl(decInfo mode) : display(std::make_unique<DisplayDrm>(mode)) {
    display->init_drm_display();
}

ShowControl::~ShowControl() {
    ShowControl::close();
}

int ShowControl::svc() {
    gettid();
    setThreadName("ShowControl");
    setCpuCore(displayCpus, pthread_self());
    timeval lastReport = monotonicNow();
    while (running) {
        DisplayDrm* current = DisplayDrm::getDrmDev();
        if (current != nullptr) {
            current->updateImage();
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        const timeval now = monotonicNow();
        if (current != nullptr && elapsedMs(lastReport, now) >= reportInterval_ms) {
            logOut("fps:", current->takeFlipCount() / reportInterval_s);
            lastReport = now;
        }
    }
    logOut("ShowControl", "svc", " normal stop!");
    return 0;
}

int ShowControl::close() {
    TaskBase::close();
    display->stopWaiting();
    wait();
    display->cleanQueue();
    return 0;
}

bool ShowControl::findDisplayDevice() {
    return DisplayDrm::findDrmDevice();
}

int ShowControl::isConnected() {
    return display->isDrmConnected() ? 1 : 0;
}
