#include <drm_mode.h>
#include <gtest/gtest.h>
#include <linux/videodev2.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <numeric>

#include "board/daemon/scenario.h"

namespace board {
namespace {

namespace fs = std::filesystem;

const std::string goodCamera = R"({"name": "c", "card": "Card", "driver": "uvcvideo",
  "version": "6.5.7", "formats": [{"fourcc": "YUYV", "description": "YUYV 4:2:2",
  "encoding": {"subsampling": "4:2:0", "quality": 70, "bitRate": 500000, "keyFrameDistance": 12,
  "bFrames": 2, "parameterSetsEvery": 3, "loopFrames": 4000},
  "sizes": [{"width": 640, "height": 480, "intervals": [[1, 30], [1, 30]]}]}],
  "controls": [{"id": "0x00980900", "name": "Brightness", "type": "int", "min": -5, "max": 5,
  "step": 1, "default": 0, "value": 3, "flags": ["inactive", "slider"]},
  {"id": 9963800, "name": "Power", "type": "menu", "min": 0, "max": 1, "default": 0,
  "menu": {"0": "Off", "1": "50 Hz"}}]})";

const std::string goodDisplay = R"({"name": "d", "widthMm": 500, "heightMm": 300, "modes": [
  {"clock": 148500, "hdisplay": 1920, "hsyncStart": 2008, "hsyncEnd": 2052, "htotal": 2200,
  "vdisplay": 1080, "vsyncStart": 1084, "vsyncEnd": 1089, "vtotal": 1125, "vrefresh": 60,
  "flags": ["phsync"], "type": 72}], "edid": ""})";

class ScenarioFiles : public testing::Test {
  protected:
    ScenarioFiles() {
        std::string name = (fs::temp_directory_path() / "scenario-XXXXXX").string();
        if (::mkdtemp(name.data()) != nullptr)
            folder_ = name;
        fs::create_directories(folder_ + "/cameras");
        fs::create_directories(folder_ + "/displays");
        setScenarioFolder(folder_);
    }
    ~ScenarioFiles() override {
        setScenarioFolder(SCENARIO_FOLDER);
        fs::remove_all(folder_);
    }
    std::string write(const std::string& name, const std::string& text) {
        const std::string path = folder_ + "/" + name;
        std::ofstream(path) << text;
        return path;
    }
    template <typename Load>
    std::string errorOf(const Load& load) {
        try {
            load();
        } catch (const std::runtime_error& error) {
            const std::string text = error.what();
            EXPECT_EQ(text.find('\n'), std::string::npos) << text;
            return text;
        }
        return "no error";
    }
    // `good` with one piece replaced: the error's text.
    std::string cameraError(const std::string& piece, const std::string& other) {
        return errorOf([&] { loadCamera(write("c.json", replaced(goodCamera, piece, other))); });
    }
    std::string displayError(const std::string& piece, const std::string& other) {
        return errorOf([&] { loadDisplay(write("d.json", replaced(goodDisplay, piece, other))); });
    }
    static std::string replaced(std::string text, const std::string& piece,
                                const std::string& other) {
        const std::size_t at = text.find(piece);
        EXPECT_NE(at, std::string::npos) << piece;
        return at == std::string::npos ? text : text.replace(at, piece.size(), other);
    }
    std::string folder_;
};

void expectPart(const std::string& text, const std::string& part) {
    EXPECT_NE(text.find(part), std::string::npos) << text;
}

TEST_F(ScenarioFiles, CameraFieldByField) {
    const CameraDescription camera = loadCamera(write("c.json", goodCamera));
    EXPECT_EQ(camera.name, "c");
    EXPECT_EQ(camera.card, "Card");
    EXPECT_EQ(camera.version, 0x060507u);
    ASSERT_EQ(camera.formats.size(), 1u);
    EXPECT_EQ(camera.formats[0].fourcc, V4L2_PIX_FMT_YUYV);
    ASSERT_EQ(camera.formats[0].sizes.size(), 1u);
    ASSERT_EQ(camera.formats[0].sizes[0].intervals.size(), 2u) << "repetitions are kept";
    EXPECT_EQ(camera.formats[0].sizes[0].intervals[1].denominator, 30u);
    Encoding encoding;
    encoding.fullChromaHeight = false;
    encoding.quality = 70;
    encoding.bitRate = 500000;
    encoding.keyFrameDistance = 12;
    encoding.bFrames = 2;
    encoding.parameterSetsEvery = 3;
    encoding.loopFrames = 4000;
    EXPECT_TRUE(camera.formats[0].encoding == encoding);
    ASSERT_EQ(camera.controls.size(), 2u);
    EXPECT_EQ(camera.controls[0].id, std::uint32_t(V4L2_CID_BRIGHTNESS));
    EXPECT_EQ(camera.controls[0].minimum, -5);
    EXPECT_EQ(camera.controls[0].value, 3);
    EXPECT_EQ(camera.controls[0].flags,
              std::uint32_t(V4L2_CTRL_FLAG_INACTIVE | V4L2_CTRL_FLAG_SLIDER));
    EXPECT_EQ(camera.controls[1].id, std::uint32_t(V4L2_CID_POWER_LINE_FREQUENCY));
    EXPECT_EQ(camera.controls[1].menu.at(1), "50 Hz");
}

TEST_F(ScenarioFiles, DisplayFieldByField) {
    const DisplayDescription display = loadDisplay(write("d.json", goodDisplay));
    ASSERT_EQ(display.modes.size(), 1u);
    const DisplayMode& mode = display.modes[0];
    EXPECT_EQ(mode.name, "1920x1080");
    EXPECT_EQ(mode.clock_kHz, 148500u);
    EXPECT_EQ(mode.hsyncEnd, 2052);
    EXPECT_EQ(mode.vtotal, 1125);
    EXPECT_EQ(mode.flags, std::uint32_t(DRM_MODE_FLAG_PHSYNC));
    EXPECT_EQ(mode.type, 72u);
    EXPECT_EQ(display.widthMm, 500u);
}

TEST_F(ScenarioFiles, ModesOutOfTheEdidWhenNoneAreListed) {
    setScenarioFolder(SCENARIO_FOLDER);
    const auto edid = loadDisplay(findDisplay("synthetic-1080p60")).edid;
    std::string text;
    for (const std::uint8_t byte : edid) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    const auto display =
        loadDisplay(write("e.json", R"({"name": "e", "modes": [], "edid": ")" + text + "\"}"));
    ASSERT_FALSE(display.modes.empty());
    EXPECT_EQ(display.modes[0].name, "1920x1080");
    EXPECT_EQ(display.modes[0].vrefresh_Hz, 60u);
    EXPECT_EQ(std::count_if(display.modes.begin(), display.modes.end(),
                            [](const DisplayMode& mode) { return mode.name == "1680x1050"; }),
              1);
    EXPECT_TRUE(loadDisplay(write("f.json", R"({"name": "f", "modes": []})")).modes.empty());
}

TEST_F(ScenarioFiles, ErrorsNameFileAndPlace) {
    const std::string error = cameraError("\"width\": 640", "\"width\": 0");
    expectPart(error, folder_ + "/c.json: $.formats[0].sizes[0].width: 0 is not in 1 to 16384");
    expectPart(cameraError("\"loopFrames\": 4000", "\"loopFrames\": 191"),
               "$.formats[0].encoding.loopFrames: 191 is not in 192 to 65536");
    expectPart(cameraError("\"card\"", "\"crad\""), "\"card\" is missing");
    expectPart(cameraError("\"step\": 1", "\"stepp\": 1"),
               "$.controls[0]: unknown key \"stepp\"; known: default, flags, id");
}

TEST_F(ScenarioFiles, CameraStrictness) {
    expectPart(cameraError("640", "\"640\""), "whole number");
    expectPart(cameraError("640", "640.5"), "whole number");
    expectPart(cameraError("640", "-1"), "-1 is not in");
    expectPart(cameraError("640", "1e40"), "whole number");
    expectPart(cameraError("[1, 30]", "[1]"), "intervals[0]: must be [numerator");
    expectPart(cameraError("[1, 30]", "[0, 30]"), "intervals[0][0]: 0 is not in");
    expectPart(cameraError("\"YUYV\"", "\"YUY\""), "four characters");
    expectPart(cameraError("\"6.5.7\"", "\"6.5\""), "$.version");
    expectPart(cameraError("\"6.5.7\"", "\"6.5.700\""), "$.version");
    expectPart(cameraError("\"Card\"", "\"" + std::string(32, 'x') + "\""), "longer than 31");
    expectPart(cameraError("\"Card\"", "\"a\\u0000b\""), "zero character");
    expectPart(cameraError("\"value\": 3", "\"value\": 4294967296"), "4294967296 is not in");
    EXPECT_EQ(cameraError("\"value\": 3", "\"value\": 257"), "no error")
        << "cameras that report such a value exist";
    expectPart(cameraError("\"max\": 5", "\"max\": -6"), "-6 is not in");
    expectPart(cameraError("\"slider\"", "\"round\""), "no control flag");
    expectPart(cameraError("\"type\": \"int\"", "\"type\": \"float\""), "must be int, bool");
    expectPart(cameraError("\"1\": \"50 Hz\"", "\"2\": \"50 Hz\""), "keys are numbers");
    expectPart(cameraError("9963800", "9963776"), "stands there already");
    expectPart(cameraError("\"name\": \"c\"", "\"name\": \"c\", \"name\": \"e\""), "twice");
}

TEST_F(ScenarioFiles, DisplayStrictness) {
    expectPart(displayError("\"hsyncStart\": 2008", "\"hsyncStart\": 1919"), "hsyncStart");
    expectPart(displayError("2200", "70000"), "$.modes[0].htotal: 70000 is not in 2052 to 65535");
    expectPart(displayError("\"phsync\"", "\"sync\""), "$.modes[0].flags[0]");
    expectPart(displayError("\"edid\": \"\"", "\"edid\": \"00\""), "blocks of 128");
    expectPart(displayError("\"edid\": \"\"", "\"edid\": \"zz\""), "hexadecimal at digit 0");
    expectPart(displayError("\"widthMm\"", "\"connector\": \"VGA-1\", \"widthMm\""), "HDMI-A-1");
}

TEST_F(ScenarioFiles, BrokenFiles) {
    expectPart(errorOf([&] { loadScenario(write("s.json", "{\n  \"name\": ,}")); }),
               "s.json: line 2, column 11: ");
    expectPart(errorOf([&] { loadScenario(write("s.json", "")); }), "s.json: line 1, column 1");
    expectPart(errorOf([&] { loadScenario(write("s.json", std::string(1000000, '['))); }),
               "line 1");
    expectPart(errorOf([&] { loadScenario(write("s.json", std::string(5 << 20, ' '))); }), "4 MB");
    expectPart(errorOf([&] { loadScenario(folder_ + "/none.json"); }), "No such file");
    expectPart(errorOf([&] { loadScenario(folder_); }), folder_);
}

TEST_F(ScenarioFiles, CameraByNameInPlaceOrAbsent) {
    write("cameras/one.json", goodCamera);
    write("displays/big.json", goodDisplay);
    const std::string path = write("s.json", R"({"name": "s", "camera": "one", "display": "big",
        "cameraPlugged": false, "cameraNumber": 3, "recording": "field:red", "speed": 10})");
    const Scenario named = loadScenario(findScenario("s"));
    EXPECT_EQ(findScenario("s"), path);
    EXPECT_EQ(named.camera.card, "Card");
    EXPECT_EQ(named.camera.recording, "field:red");
    EXPECT_FALSE(named.cameraPlugged);
    EXPECT_TRUE(named.displayPlugged);
    EXPECT_EQ(named.cameraNumber, 3u);
    EXPECT_EQ(named.speed, 10u);
    const Scenario inPlace = loadScenario(
        write("t.json", R"({"name": "t", "camera": null, "display": )" + goodDisplay + "}"));
    EXPECT_FALSE(inPlace.hasCamera);
    EXPECT_EQ(inPlace.display.modes.size(), 1u);
    const Scenario byPath = loadScenario(
        write("u.json", R"({"name": "u", "camera": "cameras/one.json", "display": null})"));
    EXPECT_EQ(byPath.camera.name, "c");
}

TEST_F(ScenarioFiles, FilesByPath) {
    const Scenario scenario =
        loadScenario(write("s.json", R"({"name": "s", "camera": null, "display": null, "files":
            {"/userdata/version": "5.21\n", "/usr/bin/startupflag": ""}})"));
    const std::map<std::string, std::string> wanted = {{"/userdata/version", "5.21\n"},
                                                       {"/usr/bin/startupflag", ""}};
    EXPECT_EQ(scenario.files, wanted);
    for (const char* path : {"/etc/passwd", "userdata/version", "/userdata/../etc/passwd",
                             "/userdata2/x", "/userdata/", "/", ""}) {
        const std::string text = R"({"name": "s", "camera": null, "display": null, "files": {")" +
                                 std::string(path) + R"(": ""}})";
        expectPart(errorOf([&] { loadScenario(write("s.json", text)); }),
                   "not one of the paths that lead into the run folder");
    }
}

TEST_F(ScenarioFiles, ScenarioErrors) {
    write("cameras/one.json", goodCamera);
    const auto error = [&](const std::string& text) {
        return errorOf([&] { loadScenario(write("s.json", text)); });
    };
    expectPart(error(R"({"name": "s", "camera": "two", "display": null})"),
               "$.camera: no camera \"two\" in ");
    expectPart(error(R"({"name": "s", "camera": "two", "display": null})"), "known: one");
    expectPart(error(R"({"name": "s", "camera": 3, "display": null})"),
               "$.camera: must be an object");
    expectPart(error(R"({"name": "s", "display": null})"), "\"camera\" is missing");
    expectPart(error(R"({"name": "s", "camera": null, "display": null, "speed": 11})"),
               "11 is not in 1 to 10");
    expectPart(error(R"({"name": "s", "camera": null, "display": null, "cameraPlugged": 1})"),
               "true or false");
    expectPart(errorOf([&] { findScenario("nothing"); }), "no scenario \"nothing\"");
}

// Every file that comes with the board loads, and its EDIDs have right sums.
TEST(ShippedScenarios, AllLoad) {
    setScenarioFolder(SCENARIO_FOLDER);
    unsigned files = 0;
    for (const auto& entry : fs::directory_iterator(SCENARIO_FOLDER))
        if (entry.path().extension() == ".json") {
            EXPECT_NO_THROW(loadScenario(entry.path())) << entry.path();
            ++files;
        }
    for (const auto& entry : fs::directory_iterator(SCENARIO_FOLDER "/cameras")) {
        EXPECT_NO_THROW(loadCamera(entry.path())) << entry.path();
        ++files;
    }
    for (const auto& entry : fs::directory_iterator(SCENARIO_FOLDER "/displays")) {
        EXPECT_NO_THROW(loadDisplay(entry.path())) << entry.path();
        ++files;
    }
    EXPECT_GE(files, 3u);
}

TEST(ShippedScenarios, DefaultIsWhole) {
    setScenarioFolder(SCENARIO_FOLDER);
    const Scenario scenario = loadScenario(findScenario("default"));
    EXPECT_EQ(scenario.camera.formats.at(0).sizes.size(), 3u);
    EXPECT_EQ(scenario.display.modes.size(), 9u);
    const auto& edid = scenario.display.edid;
    ASSERT_EQ(edid.size(), 256u);
    for (const std::size_t block : {0u, 128u})
        EXPECT_EQ(
            std::accumulate(edid.begin() + long(block), edid.begin() + long(block) + 128, 0) % 256,
            0);
    for (const DisplayMode& mode : scenario.display.modes)
        EXPECT_NEAR(mode.clock_kHz * 1000.0 / (double(mode.htotal) * mode.vtotal), mode.vrefresh_Hz,
                    0.3)
            << mode.name;
}

}  // namespace
}  // namespace board
