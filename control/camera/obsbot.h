// Drives the camera from the handheld remote control, and keeps six views of it.
#pragma once

#include "control/task/taskbase.h"
#include "control/task/uniquefd.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

struct v4l2_query_ext_ctrl;

// Rows of the control table.
enum UVC_PARAM_E : int {
    UVC_PAN_ABSOLUTE = 0,
    UVC_TILT_ABSOLUTE = 1,
    UVC_ZOOM_ABSOLUTE = 2,
    UVC_FOCUS_AUTO = 3,
    UVC_PAN_SPEED = 4,
    UVC_TILT_SPEED = 5,
    UVC_BRIGHTNESS = 6,
    UVC_CONTRAST = 7,
    UVC_SATURATION = 8,
    UVC_HUE = 9,
    UVC_SHARPNESS = 10,
    UVC_WHITE_BALANCE_AUTO = 11,
    UVC_WHITE_BALANCE_TEMPERATURE = 12,
};

// One control of the camera, in the driver's units.
struct UvcControlEntry {
    std::uint32_t id;  // V4L2 control id
    char name[128];    // as the driver calls it, zero-terminated
    bool valid;        // the driver has it, and its range is not empty
    std::int32_t min, max, default_value;
    std::int32_t step;   // of pan, tilt and zoom: a 180th of the range, unless that is short
    std::int32_t value;  // the last one read or written
};

// What a key can start or stop.
enum ObsBotActionIndex : std::int32_t {
    ACTION_TILT_STOP = 0,
    ACTION_TILT_UP = 1,
    ACTION_TILT_DOWN = 2,
    ACTION_PAN_STOP = 3,
    ACTION_PAN_LEFT = 4,
    ACTION_PAN_RIGHT = 5,
    ACTION_ZOOM_STOP = 6,
    ACTION_ZOOM_IN = 7,
    ACTION_ZOOM_DE = 8,
    ACTION_TRACK = 9,
    ACTION_RESET = 10,
    ACTION_DORMANT = 11,
    ACTION_NONE = 12,
};

struct ObsBotAction {
    bool busy = false;  // set while a motion is being started
    int (*handler)(void* obsBot) = nullptr;
    std::int64_t speedHint = 0;
};

// The camera-control task. One thread reads the remote and runs every action; what is public below
// is that thread's alone once the object is made. The camera's node is opened for each operation,
// so the capture session keeps its own descriptor.
class ObsBot final : public TaskBase {
  public:
    // Asks the camera for its controls, unless it sleeps, and starts the thread.
    explicit ObsBot(std::string videoDevicePath);
    ~ObsBot() override;

    int svc() override;

    // Empties the table and sets view 1; 1.
    int initBrivUvcControl();
    // Fills the table from the driver; 0, or -1 when the camera cannot be opened.
    int queryControls();

    // 1 on success, else 0 with a line. `percent` not 0: in percent of the range, which is not
    // enforced. A null `value` only refreshes the table; a failed read gives the last known value.
    int getControl(UVC_PARAM_E param, int* value, char percent);
    // As above; 1 also when the driver refused.
    int setControl(UVC_PARAM_E param, int value, char percent);

    // One access to a selector of the camera's extension unit, `size` bytes at `data`; 1 or 0.
    int getControl_xu(int unit, int selector, int size, unsigned char* data);
    int setControl_xu(int unit, int selector, int size, unsigned char* data);
    // Finds the unit that takes commands: its id, or -1 when none does. False when the task was
    // stopped meanwhile.
    bool findExtensionUnit(int* unit);

    // Stores the table's values as the current view; 0, or -1 with the file as it was.
    int save_view_data();
    // Makes another view (1 to 6) the current one and applies what is stored of it; 0, else -1.
    int change_view(char view);

    // The camera's node, non-blocking; invalid when it cannot be opened.
    UniqueFd openCamera() const;

    // 1 while the camera was put to sleep from the remote control, else 0. Outlives every object;
    // written and read by several threads.
    static std::atomic<int> dormantStatus;

    std::string videoDevicePath;
    std::int32_t currentView = 1;
    std::array<UvcControlEntry, 13> controls{};
    std::int32_t lastAction = ACTION_NONE;  // the last one started from the remote
    std::array<ObsBotAction, 12> actions{};

  private:
    enum class RemoteEnd { disconnected, asleep, stopped };

    // Steps of the remote loop.
    RemoteEnd followRemote(int receiver, const std::string& path);
    bool handleKey(unsigned int key);
    void toggleMotion(std::int32_t action, std::int32_t stop);
    void pausePeriods(int count) const;

    void enumerateControls(int camera);
    void takeRange(const char* name, const v4l2_query_ext_ctrl& control);
    UvcControlEntry* usableRow(UVC_PARAM_E param);
};

// The twelve actions; each takes the ObsBot and gives 0, whatever the camera says.
int controlHandle_tiltStop(void* obsBot);
int controlHandle_tiltUp(void* obsBot);
int controlHandle_tiltDown(void* obsBot);
int controlHandle_panStop(void* obsBot);
int controlHandle_panLeft(void* obsBot);
int controlHandle_panRight(void* obsBot);
int controlHandle_ZoomStop(void* obsBot);
int controlHandle_ZoomIn(void* obsBot);
int controlHandle_ZoomDe(void* obsBot);
int controlHandle_track(void* obsBot);
int controlHandle_reset(void* obsBot);
int controlHandle_dormant(void* obsBot);
