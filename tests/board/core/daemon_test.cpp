// The whole board in one process: orders that reach its camera and display.
#include "board/daemon/daemon.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/board/core/boardclient.h"

namespace boardtest {
namespace {

namespace fs = std::filesystem;

class WholeBoard : public testing::Test {
  protected:
    WholeBoard() {
        std::string name = (fs::temp_directory_path() / "board-daemon-XXXXXX").string();
        if (::mkdtemp(name.data()) != nullptr)
            folder_ = name;
        board::setScenarioFolder(SCENARIO_FOLDER);
        daemon_ = std::make_unique<board::Daemon>(
            loop_, folder_, board::loadScenario(board::findScenario("default")));
        thread_ = std::thread([this] { loop_.run(); });
        orders_ = std::make_unique<OrderClient>(folder_);
    }
    ~WholeBoard() override {
        loop_.stop();
        thread_.join();
        daemon_.reset();
        EXPECT_FALSE(fs::exists(folder_ + "/order.sock"));
        EXPECT_TRUE(fs::is_empty(folder_ + "/root/sys/dev/char"));
        fs::remove_all(folder_);
    }

    rapidjson::Document order(const std::string& json) {
        rapidjson::Document answer;
        const std::string line = orders_->order(json);
        answer.Parse(line.c_str());
        EXPECT_TRUE(answer.IsObject() && answer.HasMember("ok")) << line;
        return answer;
    }
    void expectOk(const std::string& json) {
        const auto answer = order(json);
        EXPECT_TRUE(answer["ok"].GetBool())
            << json << ": " << (answer.HasMember("error") ? answer["error"].GetString() : "");
    }
    void expectError(const std::string& json, const std::string& part) {
        const auto answer = order(json);
        ASSERT_TRUE(answer.HasMember("error")) << json;
        EXPECT_NE(std::string(answer["error"].GetString()).find(part), std::string::npos)
            << answer["error"].GetString();
    }
    std::string cameraNode() { return order(R"({"order": "state"})")["cameraNode"].GetString(); }

    std::string folder_;
    board::EventLoop loop_;
    std::unique_ptr<board::Daemon> daemon_;
    std::thread thread_;
    std::unique_ptr<OrderClient> orders_;
};

TEST_F(WholeBoard, StateOfTheDefaultScenario) {
    const auto state = order(R"({"order": "state"})");
    EXPECT_STREQ(state["scenario"].GetString(), "default");
    EXPECT_STREQ(state["cameraNode"].GetString(), "/dev/video0");
    EXPECT_TRUE(state["cameraPlugged"].GetBool());
    EXPECT_TRUE(state["displayPlugged"].GetBool());
    EXPECT_STREQ(state["display"].GetString(), "synthetic-1080p60");
    EXPECT_STREQ(state["camera"].GetString(), "synthetic-mjpeg");
    EXPECT_STREQ(state["microphone"].GetString(), "synthetic-microphone");
    EXPECT_STREQ(state["output"].GetString(), "synthetic-output");
    EXPECT_FALSE(order(R"({"order": "ptz"})")["moves"].GetBool());
    EXPECT_EQ(state["speed"].GetUint(), 1u);
    EXPECT_TRUE(fs::exists(folder_ + "/root/userdata"));
}

TEST_F(WholeBoard, NodesCanBeOpenedAndAreCounted) {
    BoardClient camera(folder_), card(folder_);
    EXPECT_EQ(camera.open("/dev/video0").header.result, 0);
    EXPECT_EQ(card.open("/dev/dri/card0").header.result, 0);
    const auto figures = order(R"({"order": "figures"})");
    EXPECT_EQ(figures["handles"]["/dev/video0"].GetUint(), 1u);
    EXPECT_EQ(figures["handles"]["/dev/dri/card0"].GetUint(), 1u);
    EXPECT_EQ(figures["camera"]["openHandles"].GetUint(), 1u);
    EXPECT_EQ(figures["display"]["flips"].GetUint64(), 0u);
    EXPECT_EQ(order(R"({"order": "state"})")["clients"].GetUint(), 2u);
}

TEST_F(WholeBoard, CameraPlugs) {
    expectError(R"({"order": "plug", "device": "camera"})", "plugged in already, at /dev/video0");
    expectOk(R"({"order": "unplug", "device": "camera"})");
    EXPECT_EQ(cameraNode(), "");
    expectError(R"({"order": "unplug", "device": "camera"})", "not plugged in");
    BoardClient late(folder_);
    EXPECT_EQ(late.open("/dev/video0").header.result, -ENOENT);
    expectError(R"({"order": "plug", "device": "camera", "description": "nothing"})",
                "no camera \"nothing\"");
    EXPECT_EQ(cameraNode(), "");
    expectOk(R"({"order": "plug", "device": "camera", "description": "synthetic-yuyv"})");
    EXPECT_EQ(cameraNode(), "/dev/video0");
    expectError(R"({"order": "plug", "device": "mouse"})",
                "must be camera, display, microphone, output or an input device");
}

TEST_F(WholeBoard, ReplugWhileTheOldNodeIsHeldTakesTheNextNumber) {
    BoardClient holder(folder_);
    ASSERT_EQ(holder.open("/dev/video0").header.result, 0);
    expectOk(R"({"order": "unplug", "device": "camera"})");
    expectOk(R"({"order": "plug", "device": "camera"})");
    EXPECT_EQ(cameraNode(), "/dev/video1");
    EXPECT_TRUE(fs::exists(folder_ + "/root/sys/dev/char/81:1/uevent"));
}

TEST_F(WholeBoard, DisplayPlugsAndModes) {
    expectError(R"({"order": "plug", "device": "display"})", "plugged in already");
    expectOk(R"({"order": "unplug", "device": "display"})");
    EXPECT_FALSE(order(R"({"order": "state"})")["displayPlugged"].GetBool());
    expectError(R"({"order": "unplug", "device": "display"})", "not plugged in");
    expectOk(R"({"order": "plug", "device": "display"})");
    expectError(R"({"order": "modes", "description": "none"})", "no display \"none\"");
    const std::string path = folder_ + "/tiny.json";
    std::ofstream(path) << R"({"name": "tiny", "modes": []})";
    expectOk(R"({"order": "modes", "description": ")" + path + "\"}");
    EXPECT_STREQ(order(R"({"order": "state"})")["display"].GetString(), "tiny");
}

TEST_F(WholeBoard, CameraOrders) {
    expectOk(R"({"order": "stall", "device": "camera"})");
    expectOk(R"({"order": "resume", "device": "camera"})");
    expectError(R"({"order": "stall", "device": "display"})", "the display cannot do that");
    expectOk(R"({"order": "recording", "name": "field:red"})");
    expectError(R"({"order": "recording", "name": "/none.mp4"})", "/none.mp4: no such file");
    expectOk(R"({"order": "payload", "bytes": 100, "count": 2})");
    expectError(R"({"order": "payload", "bytes": -1, "count": 2})", "$.bytes");
}

TEST_F(WholeBoard, DisplayOrders) {
    expectOk(R"({"order": "flips", "action": "hold"})");
    expectOk(R"({"order": "flips", "action": "go"})");
    expectOk(R"({"order": "lose-flip"})");
    expectError(R"({"order": "flips", "action": "stop"})", "must be hold or go");
    expectOk(R"({"order": "figures-reset"})");
    expectError(R"({"order": "picture", "path": "here.png"})", "absolute path");
    expectError(R"({"order": "frames", "folder": "/x", "count": 65})", "65 is not in 1 to 64");
    expectError(R"({"order": "record", "action": "start"})", "\"path\" is missing");
    expectError(R"({"order": "record", "action": "stop"})", "");
}

TEST_F(WholeBoard, QuitAnswersAndEnds) {
    expectOk(R"({"order": "quit"})");
    thread_.join();
    thread_ = std::thread([] {});
}

// The figures of reports: who answers is a client, played here.
TEST_F(WholeBoard, LeakCheckWaitsForAClient) {
    orders_->send("{\"order\": \"leak-check\"}\n");
    auto& page = daemon_->board().page().page();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (page.dumpRequest.load() == 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    const std::uint32_t request = page.dumpRequest.load();
    ASSERT_EQ(request & 3, board::wire::dumpLeaks);
    OrderClient other(folder_);
    EXPECT_NE(other.order(R"({"order": "coverage"})").find("under way"), std::string::npos);
    page.leakResult.store(1);
    page.dumpDone.store(request >> 2);
    EXPECT_EQ(orders_->line(), "{\"ok\": true, \"leaks\": true}");
    EXPECT_EQ(page.dumpRequest.load(), 0u);
}

}  // namespace
}  // namespace boardtest
