#include "control/capture/analysisfile.h"

#include "control/camera/obsbot.h"
#include "control/display/displaydrm.h"
#include "control/task/fourcc.h"
#include "control/task/logline.h"

#include <utility>

AnalysisFile::AnalysisFile(std::string devicePath)
    : devicePath(std::move(devicePath)),
      fmtNames{fmtStr(fourccOf("MJPG"), "   Mjpeg   "), fmtStr(fourccOf("YUYV"), "   Yuyv    "),
               fmtStr(fourccOf("H264"), "   H264    ")} {}

AnalysisFile::~AnalysisFile() = default;

bool AnalysisFile::openFile() {
    captureInfo = {};
    DisplayDrm::getDrmEdidInfo(edidModes);
    logOut("-----------get drm edid info-----------");
    for (const decInfo& mode : edidModes) {
        logOut(mode.width, 'x', mode.height, '@', mode.fps);
    }
    if (!analysisUvcDevice()) {
        return false;
    }
    analysisAudioDevice();
    bool hasCameraMode = false;
    for (const auto& modes : uvcFmtLists) {
        hasCameraMode = hasCameraMode || !modes.empty();
    }
    // The display may have gone since it was probed; the choice needs a mode on either side.
    if (!hasCameraMode || edidModes.empty()) {
        return false;
    }
    selectBestFmt();
    if (captureInfo.width == 0 || captureInfo.height == 0 || captureInfo.fps == 0) {
        return false;
    }
    obsBot = std::make_unique<ObsBot>(devicePath);
    return true;
}
