// Pictures in the place of video: the two version banners and the upgrade screen.
#include "control/capture/selecttimeout.h"
#include "control/convert/colorspacetransform.h"
#include "control/display/attachtext.h"
#include "control/display/displaydrm.h"
#include "control/display/picturefile.h"
#include "control/supervise/versiontext.h"
#include "control/task/firstline.h"
#include "control/task/fourcc.h"
#include "control/task/shell.h"

#include <unistd.h>

#include <thread>
#include <vector>

namespace {

constexpr char upgradedMarker[] = "/userdata/updateSuceedFlag";
constexpr char firstStartMarker[] = "/usr/bin/startupflag";
constexpr char oldSystemVersion[] = "/userdata/oldsysver";
constexpr char newSystemVersion[] = "/userdata/newsysver";
constexpr char bannerPicture[] = "/usr/bin/startUpVersion_brivant.bin";
constexpr char upgradePicture[] = "/usr/bin/readyUpgradeDone_brivant.bin";

constexpr unsigned int pictureWidth = 1920;
constexpr unsigned int pictureHeight = 1080;
constexpr std::size_t pictureBytes = 6220800;  // three a pixel

constexpr int textX = 30;
constexpr int textY = 1050;
constexpr int textThickness = 4;
constexpr double upgradeScale = 1.0;
constexpr double firstStartScale = 1.5;

constexpr std::chrono::seconds bannerTime{5};
constexpr std::chrono::milliseconds bannerSlice{50};

bool exists(const char* path) {
    return access(path, F_OK) == 0;
}

void removeMarker(const char* path) {
    unlink(path);
    runShell("sync");
}

// While a banner stands no frame is taken: the capture task is told to be patient.
class PatientCapture {
  public:
    PatientCapture() {
        SelectTimeout::selectTimeout_sec = 10;
        SelectTimeout::selectTimeout_usec = 0;
    }
    ~PatientCapture() {
        SelectTimeout::selectTimeout_sec = seconds;
        SelectTimeout::selectTimeout_usec = microseconds;
    }
    PatientCapture(const PatientCapture&) = delete;
    PatientCapture& operator=(const PatientCapture&) = delete;

  private:
    const int seconds = SelectTimeout::selectTimeout_sec;
    const int microseconds = SelectTimeout::selectTimeout_usec;
};

}  // namespace

void DisplayDrm::startUpgradeScreen() {
    const std::lock_guard<std::mutex> lock(drmdevLock);
    DisplayDrm* display = drmdev;
    if (display != nullptr) {
        display->upgradeScreen = true;
    }
}

// A marker is used up by the first display that was set up after it was written.
void DisplayDrm::takeMarkers() {
    if (exists(upgradedMarker)) {
        upgradeBanner = exists(oldSystemVersion) && exists(newSystemVersion);
        removeMarker(upgradedMarker);
    } else if (exists(firstStartMarker)) {
        startupBanner = exists(newSystemVersion);
        removeMarker(firstStartMarker);
    }
}

bool DisplayDrm::showStillPicture() {
    if (upgradeBanner) {
        showBanner("V" + readFirstLine(oldSystemVersion) + "." + VersionText::lastVersion +
                       " -> V" + readFirstLine(newSystemVersion) + "." + VersionText::version,
                   upgradeScale);
        upgradeBanner = false;
        return true;
    }
    if (startupBanner) {
        showBanner("V" + readFirstLine(newSystemVersion) + "." + VersionText::version,
                   firstStartScale);
        startupBanner = false;
        return true;
    }
    if (upgradeScreen) {
        showUpgradeScreen();
        return true;
    }
    return false;
}

void DisplayDrm::showBanner(const std::string& text, double scale) {
    const PatientCapture patient;
    // All black, which stays where there is no background picture.
    std::vector<unsigned char> picture(pictureBytes);
    AttachText(bannerPicture, text, pictureWidth, pictureHeight, textX, textY, 255, 255, 255, scale,
               textThickness, picture.data());
    convertToBlank(picture.data());
    queueFlip(blankBuf.fb_id);
    const auto end = std::chrono::steady_clock::now() + bannerTime;
    while (!closing && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(bannerSlice);
    }
    paintBlank();
}

// Stays for good: the device is about to restart with new software.
void DisplayDrm::showUpgradeScreen() {
    {
        std::vector<unsigned char> picture(pictureBytes);
        if (PictureFile(upgradePicture).read(picture.data(), pictureBytes)) {
            convertToBlank(picture.data());
        }
    }
    queueFlip(blankBuf.fb_id);
    while (upgradeScreen) {  // nobody clears it, but the compiler must believe that somebody may
    }
}

// Scales a picture of the system image into the blank buffer.
void DisplayDrm::convertToBlank(unsigned char* picture) {
    msgVideo shown;
    shown.width = blankBuf.width;
    shown.height = blankBuf.height;
    shown.virWidth = blankBuf.pitch;
    shown.virHeight = blankBuf.height;
    shown.format = fourccOf("NV12");
    shown.outData[0] = blankBuf.vaddr;
    unsigned char* planes[3] = {picture, nullptr, nullptr};
    const ColorSpaceTransform transform(
        static_cast<int>(fourccOf("RGB3")), static_cast<int>(shown.format),
        static_cast<int>(shown.width), static_cast<int>(shown.height));
    transform.receiveImage(planes, nullptr, pictureWidth, pictureHeight, &shown);
}
