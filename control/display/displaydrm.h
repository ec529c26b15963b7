// KMS output on the board's display: modes, set-up, scan-out buffers, their ring, page flips.
#pragma once

#include "control/task/mediatypes.h"
#include "control/task/uniquefd.h"

#include <xf86drm.h>
#include <xf86drmMode.h>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// Frees what libdrm's fetch functions return.
struct DrmModeDeleter {
    void operator()(drmModeRes* object) const { drmModeFreeResources(object); }
    void operator()(drmModeConnector* object) const { drmModeFreeConnector(object); }
    void operator()(drmModeEncoder* object) const { drmModeFreeEncoder(object); }
    void operator()(drmModePropertyRes* object) const { drmModeFreeProperty(object); }
};
template <typename T>
using DrmModePtr = std::unique_ptr<T, DrmModeDeleter>;

// There is one object at a time; it is the process's display from construction to destruction.
//
// Threads: one producer (enQueue, enQueueEnd), the display task (updateImage, and in it the flip
// handler with deQueue and release), the closing task (cleanQueue); the supervisor asks
// isDrmConnected. Nobody may use the object after its owner destroyed it: stages that do are
// closed before.
class DisplayDrm {
  public:
    static constexpr int bufferCount = 36;
    static constexpr double unpacedPts = -1.0;  // a frame with this time stamp is always shown

    // One dumb scan-out buffer in NV12: the Y plane of pitch * height bytes, then the UV plane.
    struct buffer_object {
        std::uint32_t width = 0;   // of the mode, in pixels
        std::uint32_t height = 0;  // of the mode, in lines
        std::uint32_t pitch = 0;   // bytes a line, chosen by the kernel; at least width
        std::uint32_t handle = 0;
        std::uint64_t size = 0;          // bytes
        unsigned char* vaddr = nullptr;  // mapped into the process; null when that failed
        std::uint32_t fb_id = 0;
        std::uint32_t frameWidth = 0, frameHeight = 0;  // as declared by the producer
        double pts = 0.0;                               // the producer's, in ms, or unpacedPts
    };

    // Opens nothing; `mode` gives the width, height and refresh asked for.
    explicit DisplayDrm(decInfo mode);
    ~DisplayDrm();
    DisplayDrm(const DisplayDrm&) = delete;
    DisplayDrm& operator=(const DisplayDrm&) = delete;

    static DisplayDrm* getDrmDev();  // null when there is no display object
    // The current display, if there is one, shows the upgrade screen from its next flip on, for
    // good. Any thread; safe against the object's end.
    static void startUpgradeScreen();

    // The active mode's size; 0 before init_drm_display.
    std::uint32_t getDisplayWidth() const;
    std::uint32_t getDisplayHeight() const;
    // Bytes a line of the scan-out buffers: the width stride of a picture written into them.
    std::uint32_t getDisplayPitch() const;

    // Whether a usable display is attached; needs no object.
    static bool findDrmDevice();
    // Whether the display in use is still connected. Any thread.
    bool isDrmConnected();
    // Prints the display's modes and appends those under 61 Hz, each once.
    static void getDrmEdidInfo(std::vector<decInfo>& list);
    // Index of the connector's best mode of that size, -1 when none.
    static int findDrmModeIndex(const drmModeConnector* connector, int width, int height, int fps);

    // Sets the connector's picture properties and prints all of them.
    void connector_adjust();
    // Sets the mode, makes the buffers, queues the first flip, takes the marker files that ask for
    // a version banner. On failure the object stays uninitialised: isDrmConnected() is false.
    void init_drm_display();
    // False when a step failed; what was made stays for modeset_destroy_fb.
    bool modeset_create_fb(buffer_object* bo);
    void modeset_destroy_fb(buffer_object* bo);
    void close_drm_display();

    // Producer: the next free buffer's address goes to *buffer (null when it is not mapped). A
    // full ring is waited for `waitLimit` ms, then all queued frames but the oldest are dropped;
    // 0 waits without limit. Always true.
    bool enQueue(unsigned char** buffer, unsigned int width, unsigned int height, double pts,
                 int waitLimit);
    // Producer: hands the buffer of the last enQueue to the consumer.
    void enQueueEnd();
    // Consumer: the oldest finished frame, which stays in its slot; false when none came in time.
    bool deQueue(int* index, unsigned int* width, unsigned int* height, double* pts);
    bool release();  // consumer: gives the oldest slot back; always true
    void cleanQueue();

    // From now on no call waits long: deQueue gives up after 5 ms, enQueue drops at once. Any
    // thread.
    void stopWaiting();

    // Waits at most 50 ms for flip events and dispatches them. When no flip is outstanding, queues
    // one to the blank buffer first. Display task only.
    void updateImage();
    // Flips since the last call.
    int takeFlipCount();

  private:
    friend struct DisplayDrmTestAccess;
    friend void modeset_page_flip_handler(int, unsigned int, unsigned int, unsigned int, void*);

    static int advance(int index) { return (index + 1) % bufferCount; }
    bool slotsFull() const;
    void dropQueued();

    void choosePaths(const drmModeRes& resources);
    void describeConnector(std::uint32_t id, std::ostream& line);
    void chooseMode(const drmModeConnector& connector, std::ostream& line);
    bool createBuffers();
    void paintBlank();
    bool setCrtc();
    bool queueFlip(std::uint32_t framebuffer);
    void recoverLostFlip();
    void showNextFrame();

    void takeMarkers();
    bool showStillPicture();  // false: there is none to be shown
    void showBanner(const std::string& text, double scale);
    void showUpgradeScreen();
    void convertToBlank(unsigned char* picture);

    static std::atomic<DisplayDrm*> drmdev;
    static std::mutex drmdevLock;  // held while the object is changed by those who do not own it

    std::atomic<bool> initialized{false};
    drmEventContext evctx{};
    UniqueFd drmFd;
    std::uint32_t connId = 0, crtcId = 0, encId = 0;
    std::array<buffer_object, bufferCount> bufs;
    buffer_object blankBuf;
    decInfo modeInfo;
    int modeIndex = -1;

    std::atomic<int> flipCount{0};
    std::atomic<int> dequeueWaitMs{3000};
    std::atomic<int> writeIndex{0};
    std::atomic<int> readIndex{0};
    std::array<std::atomic<bool>, bufferCount> slotReady{};
    std::mutex readLock;
    std::mutex writeLock;
    double lastShownPts = 0.0;

    std::atomic<bool> upgradeBanner{false};
    std::atomic<bool> startupBanner{false};
    std::atomic<bool> upgradeScreen{false};  // never cleared

    bool flipPending = false;  // a queued flip has not completed; display task only
    bool flipRefused = false;  // the last flip was refused, and the log says so
    std::chrono::steady_clock::time_point flipDue;  // its event must have come; display task only
    std::atomic<bool> closing{false};
    std::mutex probeLock;
    std::chrono::steady_clock::time_point lastProbe;
};

// libdrm's page-flip callback: shows the next frame on the process's display.
void modeset_page_flip_handler(int fd, unsigned int sequence, unsigned int tv_sec,
                               unsigned int tv_usec, void* user_data);
