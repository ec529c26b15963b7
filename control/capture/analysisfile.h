// What the camera can deliver, what the display can show, and which of it is used.
#pragma once

#include "control/task/mediatypes.h"

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

class ObsBot;

// Made anew for every connection of a camera; used by one thread.
class AnalysisFile {
  public:
    // `devicePath`: the camera's V4L2 node. Opens nothing.
    explicit AnalysisFile(std::string devicePath);
    // Ends the camera's control task.
    ~AnalysisFile();
    AnalysisFile(const AnalysisFile&) = delete;
    AnalysisFile& operator=(const AnalysisFile&) = delete;

    // Asks camera and display and chooses. True when `captureInfo` and `displayInfo` hold a choice;
    // the camera's control task runs from then on.
    bool openFile();

    // Fills `cardName` and `uvcFmtLists`. False, with one line on standard error, when the node
    // is no camera to capture from.
    bool analysisUvcDevice();

    // Fills `audioInfos` and `selectedAudio` from the first of the sound cards 1 and 2. False when
    // the camera has no sound that can be used.
    bool analysisAudioDevice();

    // Pairs a camera mode with a display mode; false when nothing fits. Needs an entry in
    // `edidModes`, throws std::out_of_range without.
    bool selectBestFmt();

    // Both sort descending and print the list before and after; equal entries come in any order.
    void sortFps(std::vector<uvcFmt>& modes);
    void sortTotalBandwidth(std::vector<uvcFmt>& modes);

    std::string devicePath;
    decInfo captureInfo{};                           // the camera's mode; all zero: none chosen
    decInfo displayInfo{};                           // the display's mode; fps is its refresh in Hz
    std::vector<decInfo> edidModes;                  // in the connector's order, `format` unset
    std::array<fmtStr, 3> fmtNames;                  // 0 MJPG, 1 YUYV, 2 H264
    std::array<std::vector<uvcFmt>, 3> uvcFmtLists;  // accepted modes, same index, camera's order
    audioInfo selectedAudio{{}, -1, 0, 0};           // a format of -1: no sound
    std::vector<audioInfo> audioInfos;               // every setting listed, in the text's order
    std::string cardName;                            // V4L2 card name, without padding
    std::unique_ptr<ObsBot> obsBot;                  // null until a mode was chosen

  private:
    bool queryCapability(int fd);
    void enumerateFormats(int fd);
    bool isAccepted(const uvcFmt& mode) const;
    unsigned int parseAudioSettings(const std::string& text);  // how many the text names
    bool selectAudio(std::size_t& index);
    void selectNoAudio();
    bool selectExactMatch();
    bool selectFromList(const std::vector<uvcFmt>& modes, const std::vector<uvcFmt>& displays);
};
