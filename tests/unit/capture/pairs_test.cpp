// Every known camera with every known display: what is listed and chosen agrees with the second
// implementation of the rules.
#include "board/edid/edidmodes.h"
#include "control/capture/analysisfile.h"
#include "tests/unit/capture/fakecamera.h"
#include "tests/unit/capture/fakedisplay.h"
#include "tests/unit/capture/output.h"
#include "tests/unit/capture/selectionoracle.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iostream>
#include <map>

namespace {

namespace fs = std::filesystem;

std::vector<std::string> filesOf(const char* folder) {
    std::vector<std::string> paths;
    for (const auto& entry : fs::directory_iterator(fs::path(SCENARIO_FOLDER) / folder)) {
        if (entry.path().extension() == ".json") {
            paths.push_back(entry.path().string());
        }
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

struct Display {
    std::string name;
    std::vector<board::DisplayMode> modes;
};

const std::vector<Display>& displays() {
    static const std::vector<Display> all = [] {
        std::vector<Display> read;
        for (const std::string& path : filesOf("displays")) {
            const auto description = board::loadDisplay(path);
            read.push_back({description.name, description.modes.empty()
                                                  ? board::modesFromEdid(description.edid)
                                                  : description.modes});
        }
        return read;
    }();
    return all;
}

using Numbers = std::vector<std::vector<std::uint32_t>>;

Numbers numbersOf(const oracle::Modes& modes) {
    Numbers numbers;
    for (const decInfo& mode : modes) {
        numbers.push_back({mode.format, mode.width, mode.height, mode.fps});
    }
    return numbers;
}

oracle::Modes offeredIn(const AnalysisFile& analysis) {
    oracle::Modes modes;
    for (const auto& list : analysis.uvcFmtLists) {
        for (const uvcFmt& mode : list) {
            modes.push_back({mode.fmt.fourcc, mode.width, mode.height, mode.fps});
        }
    }
    return modes;
}

std::string kindOf(const std::string& out) {
    const std::string before = "select fmt (";
    const auto begin = out.find(before);
    if (begin == std::string::npos) {
        return "nothing";
    }
    const auto end = out.find(')', begin);
    return out.substr(begin + before.size(), end - begin - before.size());
}

class Pairs : public testing::TestWithParam<std::string> {};

// Judges one pair; returns the kind of the choice.
std::string checkPair(const board::CameraDescription& description, const Display& display) {
    FakeCamera fakeCamera(description);
    FakeDisplay fakeDisplay(display.modes);
    AnalysisFile analysis("/dev/video0");
    bool found = false;
    const Output output = outputOf([&] { found = analysis.openFile(); });
    const auto offered = oracle::offeredBy(description);
    const auto listed = oracle::listedBy(display.modes);
    EXPECT_EQ(numbersOf(offeredIn(analysis)), numbersOf(offered));
    EXPECT_EQ(numbersOf(analysis.edidModes), numbersOf(listed));
    const std::string kind = kindOf(output.out);
    const auto right = offered.empty() || listed.empty() ? std::vector<oracle::Choice>()
                                                         : oracle::rightChoices(offered, listed);
    EXPECT_EQ(found, !right.empty());
    if (found && !right.empty()) {
        const oracle::Choice choice{kind, analysis.captureInfo, analysis.displayInfo};
        EXPECT_NE(std::find(right.begin(), right.end(), choice), right.end())
            << oracle::describe(choice) << ", not " << oracle::describe(right.front());
    }
    return kind;
}

TEST_P(Pairs, AgreeOnEveryDisplay) {
    const auto description = board::loadCamera(GetParam());
    for (const Display& display : displays()) {
        SCOPED_TRACE(display.name);
        checkPair(description, display);
    }
}

std::string testName(const testing::TestParamInfo<std::string>& info) {
    std::string name = fs::path(info.param).stem().string();
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Cameras, Pairs, testing::ValuesIn(filesOf("cameras")), testName);

// The collection is only worth its name if every way to choose occurs in it.
TEST(PairsTogether, CoverEveryKindOfChoice) {
    std::map<std::string, int> kinds;
    for (const std::string& path : filesOf("cameras")) {
        const auto description = board::loadCamera(path);
        for (const Display& display : displays()) {
            ++kinds[checkPair(description, display)];
        }
    }
    for (const char* kind : {"best by pass", "by pass", "scale", "nothing"}) {
        EXPECT_GT(kinds[kind], 0) << kind;
        RecordProperty(kind, kinds[kind]);
        std::cout << kind << ": " << kinds[kind] << "\n";
    }
}

}  // namespace
