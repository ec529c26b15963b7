// Orders in a scenario, and scenarios that mean the same wherever they lie.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "board/daemon/catalogue.h"
#include "board/daemon/scenario.h"
#include "board/daemon/sound/soundsource.h"

namespace board {
namespace {

namespace fs = std::filesystem;

const std::string camera = R"({"name": "c", "card": "Card", "formats": [{"fourcc": "YUYV",
  "description": "YUYV 4:2:2", "sizes": [{"width": 640, "height": 480, "intervals": [[1, 30]]}]},
  {"fourcc": "MJPG", "description": "Motion-JPEG", "compressed": true,
  "sizes": [{"width": 640, "height": 480, "intervals": [[1, 30]]}]}], "controls": []})";
const std::string display = R"({"name": "d", "modes": [{"clock": 148500, "hdisplay": 1920,
  "hsyncStart": 2008, "hsyncEnd": 2052, "htotal": 2200, "vdisplay": 1080, "vsyncStart": 1084,
  "vsyncEnd": 1089, "vtotal": 1125, "vrefresh": 60}]})";
const std::string sound = R"({"name": "s", "playback": {"settings": [{"formats": ["S16_LE"],
  "channels": 2, "rates": [48000]}]}})";

class SessionFiles : public testing::Test {
  protected:
    SessionFiles() {
        std::string name = (fs::temp_directory_path() / "session-XXXXXX").string();
        if (::mkdtemp(name.data()) != nullptr)
            folder_ = name;
        for (const char* kind : {"cameras", "displays", "sound", "inputs", "here"})
            fs::create_directories(folder_ + "/" + kind);
        setScenarioFolder(folder_);
        write("cameras/one.json", camera);
        write("displays/big.json", display);
        write("sound/card.json", sound);
        write("inputs/remote.json", R"({"name": "remote", "device": "D", "keys": ["W"]})");
    }
    ~SessionFiles() override {
        setScenarioFolder(SCENARIO_FOLDER);
        fs::remove_all(folder_);
    }
    std::string write(const std::string& name, const std::string& text) {
        const std::string path = folder_ + "/" + name;
        std::ofstream(path) << text;
        return path;
    }
    Scenario withOrders(const std::string& orders) {
        return loadScenario(
            write("here/s.json",
                  R"({"name": "s", "camera": null, "display": null, "orders": )" + orders + "}"));
    }
    std::string errorOf(const std::string& orders) {
        try {
            withOrders(orders);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "no error";
    }
    std::string folder_;
};

TEST_F(SessionFiles, OrdersFieldByField) {
    const Scenario scenario = withOrders(R"([
        {"at_ms": 0, "order": "press", "key": "W"},
        {"at_ms": 0, "order": "press", "key": 17, "device": "remote2"},
        {"at_ms": 250, "ms": 40, "order": "hold", "key": "KEY_UP"},
        {"at_ms": 250, "order": "fail", "ioctl": "VIDIOC_DQBUF", "nth": 3, "errno": "EIO"},
        {"at_ms": 604800000, "order": "unpark", "index": "all"}])");
    ASSERT_EQ(scenario.orders.size(), 5u);
    EXPECT_EQ(scenario.orders[0].at_ms, 0);
    EXPECT_EQ(scenario.orders[0].order, R"({"order": "press", "key": "W"})");
    EXPECT_EQ(scenario.orders[1].order, R"({"order": "press", "key": 17, "device": "remote2"})");
    EXPECT_EQ(scenario.orders[2].at_ms, 250);
    EXPECT_EQ(scenario.orders[2].order, R"({"order": "hold", "key": "KEY_UP", "ms": 40})");
    EXPECT_EQ(scenario.orders[3].order,
              R"({"order": "fail", "ioctl": "VIDIOC_DQBUF", "nth": 3, "errno": "EIO"})");
    EXPECT_EQ(scenario.orders[4].at_ms, 604800000);
    EXPECT_TRUE(withOrders("[]").orders.empty());
}

TEST_F(SessionFiles, BadOrdersAreOneLineWithFileAndPlace) {
    struct Bad {
        const char* orders;
        const char* place;
        const char* what;
    };
    const Bad all[] = {
        {"{}", "$.orders", "must be a list"},
        {"[7]", "$.orders[0]", "must be an object"},
        {R"([{"order": "lose-flip"}])", "$.orders[0]", "\"at_ms\" is missing"},
        {R"([{"at_ms": -1, "order": "lose-flip"}])", "$.orders[0].at_ms", "-1 is not in 0 to"},
        {R"([{"at_ms": 1.5, "order": "lose-flip"}])", "$.orders[0].at_ms", "whole number"},
        {R"([{"at_ms": 604800001, "order": "lose-flip"}])", "$.orders[0].at_ms", "is not in"},
        {R"([{"at_ms": 5, "order": "lose-flip"}, {"at_ms": 4, "order": "lose-flip"}])",
         "$.orders[1].at_ms", "earlier than the order before it"},
        {R"([{"at_ms": 0}])", "$.orders[0]", "\"order\" is missing"},
        {R"([{"at_ms": 0, "order": 3}])", "$.orders[0].order", "must be a text"},
        {R"([{"at_ms": 0, "order": "dance"}])", "$.orders[0].order", "unknown order \"dance\""},
        {R"([{"at_ms": 0, "order": "picture", "path": "/tmp/x.png"}])", "$.orders[0].order",
         "\"picture\" changes nothing"},
        {R"([{"at_ms": 0, "order": "quit"}])", "$.orders[0].order", "cannot stand here"},
        {R"([{"at_ms": 0, "order": "session", "path": "/tmp/x"}])", "$.orders[0].order",
         "cannot stand here"},
        {R"([{"at_ms": 0, "order": "unplug"}])", "$.orders[0]", "\"device\" is missing"},
        {R"([{"at_ms": 0, "order": "lose-flip", "x": 1}])", "$.orders[0]", "unknown key \"x\""},
        {R"([{"at_ms": 0, "order": "unplug", "device": null}])", "$.orders[0].device", "a text"},
        {R"([{"at_ms": 0, "order": "unplug", "device": ["camera"]}])", "$.orders[0].device",
         "must be a text"},
        {R"([{"at_ms": 0, "order": "press", "key": 1.5}])", "$.orders[0].key", "whole number"},
        {R"([{"at_ms": 0, "order": "hold", "key": "W", "ms": {}}])", "$.orders[0].ms", "a text"},
        {R"([{"at_ms": 0, "order": "hold", "key": "W", "ms": 1e40}])", "$.orders[0].ms", "whole"},
        {R"([{"at_ms": 0, "order": "modes", "description": 3}])", "$.orders[0].description",
         "must be a text"},
        {R"([{"at_ms": 0, "order": "hear", "name": "a\u0000b"}])", "$.orders[0].name", "zero"},
        {R"([{"at_ms": 0, "at_ms": 1, "order": "lose-flip"}])", "$.orders[0]", "twice"},
    };
    for (const Bad& bad : all) {
        const std::string error = errorOf(bad.orders);
        EXPECT_EQ(error.rfind(folder_ + "/here/s.json: " + bad.place + ": ", 0), 0u) << error;
        EXPECT_NE(error.find(bad.what), std::string::npos) << bad.orders << ": " << error;
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    }
}

TEST_F(SessionFiles, FilesOfOrdersAreRelativeToTheScenario) {
    const auto orderOf = [&](const std::string& order) {
        return withOrders(R"([{"at_ms": 0, )" + order + "}]").orders.at(0).order;
    };
    EXPECT_EQ(orderOf(R"("order": "plug", "device": "camera", "description": "one")"),
              R"({"order": "plug", "device": "camera", "description": "one"})");
    EXPECT_EQ(
        orderOf(R"("order": "plug", "device": "camera", "description": "../one.json")"),
        R"({"order": "plug", "device": "camera", "description": ")" + folder_ + R"(/one.json"})");
    EXPECT_EQ(orderOf(R"("order": "modes", "description": "big.json")"),
              R"({"order": "modes", "description": ")" + folder_ + R"(/here/big.json"})");
    EXPECT_EQ(orderOf(R"("order": "modes", "description": "/x/big.json")"),
              R"({"order": "modes", "description": "/x/big.json"})");
    EXPECT_EQ(orderOf(R"("order": "recording", "name": "film.mp4")"),
              R"({"order": "recording", "name": ")" + folder_ + R"(/here/film.mp4"})");
    EXPECT_EQ(orderOf(R"("order": "recording", "name": "field:red")"),
              R"({"order": "recording", "name": "field:red"})");
    EXPECT_EQ(orderOf(R"("order": "hear", "name": "speech.wav")"),
              R"({"order": "hear", "name": ")" + folder_ + R"(/here/speech.wav"})");
    for (const char* made : {"sweep", "tone:1000", "clicks", "noise", "ramp", "silence"}) {
        EXPECT_NE(makeGenerator(made), nullptr) << made;
        EXPECT_EQ(orderOf(R"("order": "hear", "name": ")" + std::string(made) + "\""),
                  R"({"order": "hear", "name": ")" + std::string(made) + "\"}");
    }
}

TEST_F(SessionFiles, DocumentMeansTheSameFromAnywhere) {
    write("listing.txt", "no listing");
    fs::copy(SCENARIO_FOLDER "/sound/stream0", folder_ + "/listings");
    const std::string listing = fs::directory_iterator(folder_ + "/listings")->path().filename();
    const Scenario scenario = loadScenario(write("here/s.json", R"({"name": "s", "speed": 3,
        "camera": "../cameras/one.json", "display": )" + display + R"(, "output": "card",
        "microphone": {"name": "m", "stream0": "../listings/)" + listing +
                                                                    R"("},
        "inputs": ["remote", "../inputs/remote.json"], "recording": "some/film.mp4",
        "hears": "tone:440", "displayPlugged": false, "cameraNumber": 7,
        "files": {"/userdata/version": "5.21\n"},
        "orders": [{"at_ms": 0, "order": "lose-flip"}]})"));
    rapidjson::Document document;
    ASSERT_FALSE(document.Parse(scenario.document.c_str()).HasParseError()) << scenario.document;
    EXPECT_EQ(scenario.document.find('\n'), std::string::npos);
    EXPECT_EQ(document["camera"].GetString(), folder_ + "/cameras/one.json");
    EXPECT_STREQ(document["output"].GetString(), "card");
    EXPECT_EQ(document["microphone"]["stream0"].GetString(), folder_ + "/listings/" + listing);
    EXPECT_STREQ(document["inputs"][0].GetString(), "remote");
    EXPECT_EQ(document["inputs"][1].GetString(), folder_ + "/inputs/remote.json");
    EXPECT_EQ(document["recording"].GetString(), fs::absolute("some/film.mp4").string());
    EXPECT_STREQ(document["hears"].GetString(), "tone:440");
    EXPECT_FALSE(document.HasMember("orders"));
    EXPECT_FALSE(document.HasMember("speed"));

    fs::create_directories(folder_ + "/else/where");
    const Scenario moved = loadScenario(write("else/where/moved.json", scenario.document));
    EXPECT_EQ(moved.camera.card, "Card");
    EXPECT_EQ(moved.display.modes.at(0).htotal, 2200);
    EXPECT_EQ(moved.microphone.stream0, scenario.microphone.stream0);
    EXPECT_FALSE(moved.microphone.stream0.empty());
    EXPECT_EQ(moved.inputs.size(), 2u);
    EXPECT_EQ(moved.inputs.at(1).name, "remote2");
    EXPECT_FALSE(moved.displayPlugged);
    EXPECT_EQ(moved.cameraNumber, 7u);
    EXPECT_EQ(moved.files, scenario.files);
    EXPECT_EQ(moved.document, scenario.document) << "once more changes nothing";
}

TEST_F(SessionFiles, DocumentOfACameraInAScenariosPlace) {
    setScenarioFolder(SCENARIO_FOLDER);
    const Scenario named = loadScenario(findScenario("synthetic-yuyv"));
    rapidjson::Document document;
    document.Parse(named.document.c_str());
    EXPECT_STREQ(document["camera"].GetString(), "synthetic-yuyv");
    const Scenario file = loadScenario(folder_ + "/cameras/one.json");
    document.Parse(file.document.c_str());
    EXPECT_EQ(document["camera"].GetString(), folder_ + "/cameras/one.json");
    const Scenario again = loadScenario(write("here/again.json", file.document));
    EXPECT_EQ(again.camera.card, "Card");
    EXPECT_EQ(again.display.name, file.display.name);
    EXPECT_EQ(again.inputs.size(), 1u);
}

TEST_F(SessionFiles, CatalogueHasWhatCanBeRead) {
    write("cameras/half.json", camera.substr(0, 40));
    write("displays/note.txt", "not a description");
    EXPECT_EQ(readCatalogue().object(),
              R"({"cameras": [{"name": "one", "card": "Card", "formats": ["YUYV", "MJPG"]}], )"
              R"("displays": [{"name": "big", "modes": ["1920x1080@60"]}], )"
              R"("sound": [{"name": "card", "card": "s", "playback": true, "capture": false}], )"
              R"("inputs": [{"name": "remote"}]})");
    fs::remove_all(folder_);
    EXPECT_EQ(readCatalogue().object(),
              R"({"cameras": [], "displays": [], "sound": [], "inputs": []})");
}

}  // namespace
}  // namespace board
