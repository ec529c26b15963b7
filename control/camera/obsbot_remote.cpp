// The remote control: finding its receiver, reading its keys.
#include "control/camera/obsbot.h"
#include "control/task/logline.h"
#include "control/task/xioctl.h"

#include <fcntl.h>
#include <linux/input.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <thread>

namespace {

constexpr int remoteCpus = 2;  // CPU 1
constexpr int inputNodes = 10;
constexpr char receiverName[] = "NYFZ USB DONGLE";
constexpr int ledCodes = 15;
constexpr std::chrono::microseconds pollPeriod_us(50000);  // a stopped task is noticed this soon
constexpr int searchPause = 20;                            // poll periods: a second

static_assert(sizeof(input_event) == 24);

struct MotionKey {
    unsigned int key;
    std::int32_t action, stop;
};

constexpr MotionKey motionKeys[] = {
    {KEY_W, ACTION_TILT_UP, ACTION_TILT_STOP}, {KEY_S, ACTION_TILT_DOWN, ACTION_TILT_STOP},
    {KEY_A, ACTION_PAN_LEFT, ACTION_PAN_STOP}, {KEY_D, ACTION_PAN_RIGHT, ACTION_PAN_STOP},
    {KEY_I, ACTION_ZOOM_IN, ACTION_ZOOM_STOP}, {KEY_O, ACTION_ZOOM_DE, ACTION_ZOOM_STOP},
};

bool isReceiver(const std::string& path) {
    const UniqueFd device(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!device.valid()) {
        return false;
    }
    int version = 0;
    char name[256] = "";
    unsigned char eventTypes[4] = {};
    xioctl(device.get(), EVIOCGVERSION, &version);
    const bool named = xioctl(device.get(), EVIOCGNAME(sizeof name), name) != -1;
    xioctl(device.get(), EVIOCGBIT(0, sizeof eventTypes), eventTypes);
    name[sizeof name - 1] = '\0';
    return named && std::string(name) == receiverName;
}

// The receiver's node, the one with the lowest number; empty when there is none.
std::string findReceiver() {
    for (int number = 0; number < inputNodes; ++number) {
        std::string path = "/dev/input/event" + std::to_string(number);
        if (isReceiver(path)) {
            return path;
        }
    }
    return {};
}

// A receiver without LEDs ignores this, and one that has gone is noticed at the first read.
void switchLedsOff(int receiver) {
    for (int code = 0; code < ledCodes; ++code) {
        input_event led{};
        led.input_event_sec = time(nullptr);
        led.type = EV_LED;
        led.code = static_cast<std::uint16_t>(code);
        if (write(receiver, &led, sizeof led) == -1) {
            return;
        }
    }
}

}  // namespace

int ObsBot::svc() {
    setThreadName("ObsBot");
    setCpuCore(remoteCpus, pthread_self());
    lastAction = ACTION_NONE;
    RemoteEnd end = RemoteEnd::disconnected;
    bool refused = false;
    while (running != 0 && end == RemoteEnd::disconnected) {
        const std::string path = findReceiver();
        if (path.empty()) {
            pausePeriods(searchPause);
            continue;
        }
        UniqueFd receiver(open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
        if (!receiver.valid()) {
            // The first refusal is followed by a search at once, a lasting one must not spin.
            if (refused) {
                pausePeriods(1);
            }
            refused = true;
            continue;
        }
        refused = false;
        logOut(path, ": open, fd = ", receiver.get());
        switchLedsOff(receiver.get());
        end = followRemote(receiver.get(), path);
        receiver.reset();
        if (end == RemoteEnd::disconnected) {
            logOut(path, " disconnect!!!");
        }
    }
    while (running != 0) {
        std::this_thread::sleep_for(std::chrono::microseconds(2000));
    }
    logOut("ObsBot", "svc", " normal stop!");
    return 0;
}

ObsBot::RemoteEnd ObsBot::followRemote(int receiver, const std::string& path) {
    // The receiver sends a scan code before each press and each release, the kernel repeats a held
    // key without one.
    bool scanSeen = false;
    while (running != 0) {
        input_event event{};
        const ssize_t length = read(receiver, &event, sizeof event);
        if (length != static_cast<ssize_t>(sizeof event)) {
            // A device that took the node's place has the same path.
            const bool gone = length == -1 && errno == ENODEV;
            if (gone || access(path.c_str(), F_OK) != 0) {
                return RemoteEnd::disconnected;
            }
            pausePeriods(1);
        } else if (event.type == EV_MSC && event.code == MSC_SCAN) {
            scanSeen = true;
        } else if (event.type == EV_KEY && scanSeen) {
            scanSeen = false;
            if (!handleKey(event.code)) {
                return RemoteEnd::asleep;
            }
        }
    }
    return RemoteEnd::stopped;
}

// False after the key that puts the camera to sleep or wakes it: this task then reads no more.
bool ObsBot::handleKey(unsigned int key) {
    for (const MotionKey& motion : motionKeys) {
        if (motion.key == key) {
            toggleMotion(motion.action, motion.stop);
            return true;
        }
    }
    const std::int32_t action = key == KEY_R   ? ACTION_RESET
                                : key == KEY_T ? ACTION_TRACK
                                : key == KEY_L ? ACTION_DORMANT
                                               : ACTION_NONE;
    if (action == ACTION_NONE) {
        return true;
    }
    if (lastAction == action) {
        lastAction = ACTION_NONE;
        return true;
    }
    actions[static_cast<std::size_t>(action)].handler(this);
    lastAction = action;
    return action != ACTION_DORMANT;
}

// A press starts the motion and the release, which looks the same, stops it; keys that overlap are
// not told apart.
void ObsBot::toggleMotion(std::int32_t action, std::int32_t stop) {
    if (lastAction == action) {
        actions[static_cast<std::size_t>(stop)].handler(this);
        lastAction = ACTION_NONE;
        return;
    }
    ObsBotAction& motion = actions[static_cast<std::size_t>(action)];
    motion.busy = true;
    motion.handler(this);
    lastAction = action;
}

void ObsBot::pausePeriods(int count) const {
    for (int period = 0; period < count && running != 0; ++period) {
        std::this_thread::sleep_for(pollPeriod_us);
    }
}
