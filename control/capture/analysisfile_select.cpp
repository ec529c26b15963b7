// Which camera mode goes with which display mode.
#include "control/capture/analysisfile.h"
#include "control/task/logline.h"

#include <algorithm>

namespace {

using Order = bool (*)(const uvcFmt&, const uvcFmt&);
using Fits = bool (*)(const uvcFmt& mode, const uvcFmt& display);

void printModes(const std::vector<uvcFmt>& modes) {
    std::ostringstream lines;
    for (const uvcFmt& mode : modes) {
        lines << mode;
    }
    writeOut(lines.str());
}

void sortLoudly(std::vector<uvcFmt>& modes, const char* what, Order order) {
    logOut("----src ", what, "----");
    printModes(modes);
    std::sort(modes.begin(), modes.end(), order);
    logOut("----sort ", what, "----");
    printModes(modes);
}

bool fitsUnscaled(const uvcFmt& mode, const uvcFmt& display) {
    return mode.width == display.width && mode.height == display.height && mode.fps <= display.fps;
}

bool fitsScaledDown(const uvcFmt& mode, const uvcFmt& display) {
    return mode.width >= display.width && mode.height >= display.height;
}

struct Pair {
    const uvcFmt* mode = nullptr;
    const uvcFmt* display = nullptr;
};

// The first pair that fits; the camera's modes are the outer loop.
Pair firstPair(const std::vector<uvcFmt>& modes, const std::vector<uvcFmt>& displays, Fits fits) {
    for (const uvcFmt& mode : modes) {
        for (const uvcFmt& display : displays) {
            if (fits(mode, display)) {
                return {&mode, &display};
            }
        }
    }
    return {};
}

void printChoice(const char* kind, const uvcFmt& mode, const decInfo& display) {
    std::ostringstream line;
    line << "###!!!---***  select fmt (" << kind << ") ***---!!!### :" << mode;
    writeOut(line.str());
    logOut("###!!!---***  select edid (", kind, ") ***---!!!### :", display.width, 'x',
           display.height, '@', display.fps);
}

}  // namespace

void AnalysisFile::sortFps(std::vector<uvcFmt>& modes) {
    sortLoudly(modes, "Fps", uvcFmt::cmp_fps);
}

void AnalysisFile::sortTotalBandwidth(std::vector<uvcFmt>& modes) {
    sortLoudly(modes, "TotalBandwidth", uvcFmt::cmp_totalBandwidth);
}

bool AnalysisFile::selectBestFmt() {
    logOut("----total all format----");
    for (const auto& modes : uvcFmtLists) {
        printModes(modes);
    }
    if (selectExactMatch()) {
        return true;
    }
    std::vector<uvcFmt> displayCandidates;
    for (const decInfo& mode : edidModes) {
        displayCandidates.emplace_back(mode.width, mode.height, mode.fps,
                                       fmtStr(uvcFmt::notACameraMode, ""));
    }
    sortTotalBandwidth(displayCandidates);
    constexpr std::size_t h264 = 2, mjpg = 0, yuyv = 1;
    for (const std::size_t list : {h264, mjpg, yuyv}) {
        if (!uvcFmtLists[list].empty() && selectFromList(uvcFmtLists[list], displayCandidates)) {
            return true;
        }
    }
    return false;
}

bool AnalysisFile::selectExactMatch() {
    const decInfo& first = edidModes.at(0);
    const uvcFmt* choice = nullptr;
    int choicePriority = -1;
    for (const auto& modes : uvcFmtLists) {
        for (const uvcFmt& mode : modes) {
            if (mode.width != first.width || mode.height != first.height || mode.fps != first.fps) {
                continue;
            }
            const int fmtPriority = mode.fmt.fourcc == fmtNames[2].fourcc   ? 2
                                    : mode.fmt.fourcc == fmtNames[0].fourcc ? 1
                                                                            : 0;
            if (fmtPriority > choicePriority) {
                choice = &mode;
                choicePriority = fmtPriority;
            }
        }
    }
    if (choice == nullptr) {
        return false;
    }
    captureInfo = {choice->fmt.fourcc, choice->width, choice->height, choice->fps};
    displayInfo = captureInfo;
    printChoice("best by pass", *choice, displayInfo);
    return true;
}

bool AnalysisFile::selectFromList(const std::vector<uvcFmt>& modes,
                                  const std::vector<uvcFmt>& displays) {
    std::vector<uvcFmt> sorted = modes;
    sortTotalBandwidth(sorted);
    const char* kind = "by pass";
    Pair pair = firstPair(sorted, displays, fitsUnscaled);
    if (pair.mode == nullptr) {
        kind = "scale";
        pair = firstPair(sorted, displays, fitsScaledDown);
    }
    if (pair.mode == nullptr) {
        return false;
    }
    const uvcFmt& mode = *pair.mode;
    captureInfo = {mode.fmt.fourcc, mode.width, mode.height, mode.fps};
    displayInfo.width = pair.display->width;
    displayInfo.height = pair.display->height;
    displayInfo.fps = pair.display->fps;
    printChoice(kind, mode, displayInfo);
    return true;
}
