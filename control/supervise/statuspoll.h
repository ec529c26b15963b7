// The supervisor: waits for camera and display, builds one pipeline, watches it, tears it down.
#pragma once

#include "control/task/taskbase.h"

#include <sys/types.h>

#include <cstdint>
#include <string>

class CaptureMedia;
class ObsBot;
class RkRga;

// Starts its thread in the constructor; the thread never ends. So does the destructor, which waits
// for it: that keeps main alive.
class StatusPoll final : public TaskBase {
  public:
    StatusPoll();
    ~StatusPoll() override;

    int svc() override;
    // One round of the state machine, with its waits. On the supervisor's thread.
    void pollOnce();

    // Looks for the first of /dev/video0 to /dev/video29; 1 with `devicePath` set, else 0.
    int checkIsDeviceExist();

  private:
    enum Statue : std::int32_t {
        STATUE_POLL_NODEVICE = 0,
        STATUE_POOL_OPENFAID = 1,
        STATUE_POOL_OPENDEVICE = 2,
        STATUE_POOL_PLAY = 3,
        STATUE_POOL_PLAYERR = 4,
        STATUE_POOL_DISCONNECT = 5,
    };
    // Which plugging of a camera a node stands for: the number can be the same after a replug, the
    // inode is not.
    struct NodeIdentity {
        dev_t device = 0;
        ino_t inode = 0;
    };

    static NodeIdentity identityOf(const std::string& path);
    bool isReplugged() const;

    void waitForDevices();
    void openDevice();
    void watchPlay();
    void dropPipeline(Statue next, const char* line);
    void waitForUnplugOrWakeUp();
    void dropObsBot();

    CaptureMedia* captureMedia = nullptr;
    RkRga* rga = nullptr;  // the process's 2D engine, never deleted
    Statue statue = STATUE_POLL_NODEVICE;
    std::string devicePath;
    ObsBot* obsBot = nullptr;  // reads the remote while the camera sleeps
    NodeIdentity usedNode;     // the node that the last pipeline was built for
    int memTick = 0;
};
