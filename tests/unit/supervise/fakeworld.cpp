#include "tests/unit/supervise/fakeworld.h"

#include "control/audio/captureaudio.h"
#include "control/audio/playbackaudio.h"
#include "control/camera/obsbot.h"
#include "control/capture/capturemedia.h"
#include "control/convert/rkrga.h"
#include "control/decode/deccommon.h"
#include "control/display/showcontrol.h"
#include "control/supervise/updatecontrol.h"

#include <pthread.h>
#include <sys/stat.h>
#include <time.h>

#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

FakeWorld world;

// The supervisor's thread would never end: it is not started, and the test plays its rounds.
extern "C" int __wrap_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) {
    return EAGAIN;
}

extern "C" int __wrap_nanosleep(const timespec* length, timespec*) {
    world.sleeps_ms.push_back(length->tv_sec * 1000 + length->tv_nsec / 1000000);
    return 0;
}

extern "C" int __wrap_access(const char* path, int) {
    if (world.nodes.count(path) != 0) {
        return 0;
    }
    errno = ENOENT;
    return -1;
}

extern "C" int __wrap_stat(const char* path, struct stat* status) {
    const auto found = world.nodes.find(path);
    if (found == world.nodes.end()) {
        errno = ENOENT;
        return -1;
    }
    *status = {};
    status->st_mode = S_IFCHR;
    status->st_rdev = 81;
    status->st_ino = found->second;
    return 0;
}

// The parts of pipeline, display and 2D engine that the supervisor calls.

AnalysisFile::AnalysisFile(std::string path) : devicePath(std::move(path)) {}

AnalysisFile::~AnalysisFile() = default;

CaptureMedia::CaptureMedia(std::string devicePath) : offsetTime(0) {
    world.pipelines.push_back(std::move(devicePath));
    ++world.living;
}

CaptureMedia::~CaptureMedia() {
    --world.living;
}

bool CaptureMedia::startPlayMedia() {
    return world.pipelineStarts;
}

int CaptureMedia::getCaptureError() {
    return world.captureError;
}

int CaptureMedia::close() {
    return 0;
}

int CaptureMedia::svc() {
    return 0;
}

DisplayDrm::~DisplayDrm() = default;

ShowControl::~ShowControl() = default;

int ShowControl::svc() {
    return 0;
}

int ShowControl::close() {
    return 0;
}

bool ShowControl::findDisplayDevice() {
    ++world.displayProbes;
    return world.displayPresent;
}

// A process makes one and keeps it; the tests make one each.
std::vector<std::unique_ptr<RkRga>> engines;

RkRga::RkRga() {
    engines.emplace_back(this);
}

RkRga::~RkRga() = default;

// The bookkeeping has tests of its own.
UpdateControl::UpdateControl() {
    world.bookkeepingCameFirst = world.sleeps_ms.empty();
}

int UpdateControl::svc() {
    return 0;
}
