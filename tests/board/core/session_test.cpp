// What a board takes down of its run, and what it repeats.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <optional>
#include <thread>

#include "board/daemon/daemon.h"
#include "tests/board/core/boardclient.h"

namespace boardtest {
namespace {

namespace fs = std::filesystem;

using Texts = std::vector<std::string>;

std::string textOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// A board in this process, started from a scenario's text.
class Sessions : public testing::Test {
  protected:
    Sessions() {
        std::string name = (fs::temp_directory_path() / "session-XXXXXX").string();
        if (::mkdtemp(name.data()) != nullptr)
            folder_ = name;
        board::setScenarioFolder(SCENARIO_FOLDER);
    }
    ~Sessions() override {
        stop();
        fs::remove_all(folder_);
    }
    // Returns when the board is ready.
    void start(const std::string& scenario) {
        stop();
        std::ofstream(folder_ + "/start.json") << scenario;
        startFile(folder_ + "/start.json");
    }
    void startFile(const std::string& path) {
        stop();
        std::promise<void> ready;
        daemon_ = std::make_unique<board::Daemon>(
            loop_, folder_ + "/run", board::loadScenario(path), [&] { ready.set_value(); });
        thread_ = std::thread([this] { loop_.run(); });
        ASSERT_EQ(ready.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
        orders_ = std::make_unique<OrderClient>(folder_ + "/run");
    }
    void stop() {
        fs::create_directories(folder_ + "/run");
        if (!thread_.joinable())
            return;
        loop_.stop();
        thread_.join();
        orders_.reset();
        daemon_.reset();
    }
    rapidjson::Document order(const std::string& json) {
        rapidjson::Document answer;
        const std::string line = orders_->order(json);
        answer.Parse(line.c_str());
        EXPECT_TRUE(answer.IsObject() && answer.HasMember("ok")) << line.substr(0, 300);
        return answer;
    }
    void expectOk(const std::string& json) { EXPECT_TRUE(order(json)["ok"].GetBool()) << json; }
    std::string errorOf(const std::string& json) {
        const auto answer = order(json);
        return answer.HasMember("error") ? answer["error"].GetString() : "no error";
    }
    board::Scenario saved() {
        expectOk(R"({"order": "session", "path": ")" + folder_ + "/saved.json\"}");
        return board::loadScenario(folder_ + "/saved.json");
    }
    static Texts ordersOf(const board::Scenario& scenario) {
        Texts texts;
        for (const board::TimedOrder& timed : scenario.orders)
            texts.push_back(timed.order);
        return texts;
    }
    bool becomesTrue(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return true;
    }
    std::size_t toCome() { return order(R"({"order": "state"})")["ordersToCome"].GetUint(); }

    std::string folder_;
    board::EventLoop loop_;
    std::unique_ptr<board::Daemon> daemon_;
    std::thread thread_;
    std::unique_ptr<OrderClient> orders_;
};

const std::string plain = R"({"name": "plain", "camera": "synthetic-yuyv",
    "display": "synthetic-1080p60", "inputs": ["remote"], "output": "synthetic-output"})";

TEST_F(Sessions, TakesDownWhatChangesWhoeverOrdersIt) {
    start(plain);
    expectOk(R"({"order": "unplug", "device": "camera"})");
    expectOk(R"({"order": "figures"})");
    expectOk(R"({"order": "figures-reset"})");
    expectOk(R"({"order": "inputs"})");
    errorOf(R"({"order": "unplug", "device": "camera"})");
    errorOf(R"({"order": "plug", "device": "camera", "description": "no-such-camera"})");
    {
        OrderClient other(folder_ + "/run");
        other.order(R"({"device": "camera", "order": "plug", "description": "synthetic-ptz"})");
    }
    BoardClient client(folder_ + "/run");
    EXPECT_EQ(client.open("/dev/dri/card0").header.result, 0);
    // The clock runs: some of its milliseconds pass.
    const auto began = std::chrono::steady_clock::now();
    ASSERT_TRUE(becomesTrue(
        [&] { return std::chrono::steady_clock::now() - began > std::chrono::milliseconds(30); }));
    expectOk(R"({"order": "press", "key": 17})");
    expectOk(R"({"order": "picture", "path": ")" + folder_ + "/x.png\"}");
    expectOk(R"({"order": "release", "key": "W"})");
    const board::Scenario session = saved();
    const Texts wanted = {
        R"({"order": "unplug", "device": "camera"})",
        R"({"order": "plug", "device": "camera", "description": "synthetic-ptz"})",
        R"({"order": "press", "key": 17})", R"({"order": "release", "key": "W"})"};
    EXPECT_EQ(ordersOf(session), wanted);
    EXPECT_EQ(session.orders[0].at_ms, 0);
    EXPECT_EQ(session.orders[1].at_ms, 0);
    EXPECT_GE(session.orders[2].at_ms, 30);
    EXPECT_LE(session.orders[2].at_ms, 60000);
    EXPECT_GE(session.orders[3].at_ms, session.orders[2].at_ms);
    EXPECT_EQ(session.name, "plain");
    EXPECT_EQ(session.camera.name, "synthetic-yuyv") << "the start's";
}

TEST_F(Sessions, AnswerIsWhatAFileHas) {
    start(plain);
    expectOk(R"({"order": "lose-flip"})");
    saved();
    const auto answer = order(R"({"order": "session"})");
    rapidjson::Document file;
    file.Parse(textOf(folder_ + "/saved.json").c_str());
    ASSERT_TRUE(file.IsObject());
    EXPECT_TRUE(answer["session"] == file);
    EXPECT_EQ(file["speed"].GetInt(), 1);
    EXPECT_EQ(file["orders"].Size(), 1u);
}

TEST_F(Sessions, HostilePathsAreRefused) {
    start(plain);
    fs::create_directory(folder_ + "/folder");
    ASSERT_EQ(::mkfifo((folder_ + "/pipe").c_str(), 0600), 0);
    fs::create_symlink("/dev/null", folder_ + "/link");
    const auto errorFor = [&](const std::string& path) {
        return errorOf(R"({"order": "session", "path": ")" + path + "\"}");
    };
    EXPECT_NE(errorFor("saved.json").find("$.path: must be an absolute path"), std::string::npos);
    EXPECT_NE(errorFor("../saved.json").find("must be an absolute path"), std::string::npos);
    EXPECT_NE(errorFor("").find("must be an absolute path"), std::string::npos);
    EXPECT_NE(errorFor("/tmp/a\\u0000b").find("zero character"), std::string::npos);
    EXPECT_NE(errorFor("/" + std::string(5000, 'x')).find("longer than"), std::string::npos);
    EXPECT_NE(errorFor("/" + std::string(300, 'x')).find("File name too long"), std::string::npos);
    EXPECT_NE(errorFor(folder_ + "/none/saved.json").find("No such file"), std::string::npos);
    for (const char* name : {"/folder", "/pipe", "/link"})
        EXPECT_EQ(errorFor(folder_ + name), folder_ + name + ": is there and is no ordinary file");
    EXPECT_NE(errorOf(R"({"order": "session", "path": 7})").find("$.path"), std::string::npos);
    EXPECT_TRUE(fs::is_fifo(folder_ + "/pipe"));
    for (const auto& entry : fs::directory_iterator(folder_))
        EXPECT_EQ(entry.path().filename().string().find("saved"), std::string::npos) << entry;
    std::ofstream(folder_ + "/saved.json") << "an earlier one";
    EXPECT_TRUE(saved().orders.empty());
}

TEST_F(Sessions, RelativeFilesOfOrdersGetTheirWholeName) {
    start(plain);
    expectOk(R"({"order": "modes", "description": ")" + fs::relative(SCENARIO_FOLDER).string() +
             R"(/displays/synthetic-1080p60.json"})");
    const Texts wanted = {R"({"order": "modes", "description": ")" +
                          fs::path(SCENARIO_FOLDER).lexically_normal().string() +
                          R"(/displays/synthetic-1080p60.json"})"};
    EXPECT_EQ(ordersOf(saved()), wanted);
}

TEST_F(Sessions, OrdersAtZeroAreDoneBeforeAnyClient) {
    start(plain.substr(0, plain.size() - 1) + R"(, "microphone": "synthetic-microphone", "orders": [
        {"at_ms": 0, "order": "unplug", "device": "camera"},
        {"at_ms": 0, "order": "unplug", "device": "no-such-thing"},
        {"at_ms": 0, "order": "plug", "device": "camera", "description": "synthetic-ptz"},
        {"at_ms": 0, "order": "hear", "name": "tone:500"},
        {"at_ms": 0, "order": "hold", "key": "W", "ms": 600000},
        {"at_ms": 1, "order": "unplug", "device": "display"}]})");
    const auto state = order(R"({"order": "state"})");
    EXPECT_TRUE(state["cameraPlugged"].GetBool());
    EXPECT_EQ(state["ordersToCome"].GetUint(), 1u);
    EXPECT_EQ(state["ordersTaken"].GetUint(), 4u);
    EXPECT_TRUE(state["displayPlugged"].GetBool()) << "no client has connected";
    EXPECT_STREQ(order(R"({"order": "inputs"})")["inputs"][0]["keysDown"][0].GetString(), "KEY_W");
    BoardClient camera(folder_ + "/run");
    EXPECT_TRUE(
        becomesTrue([&] { return !order(R"({"order": "state"})")["displayPlugged"].GetBool(); }));
}

TEST_F(Sessions, OrdersComeAtTheirTimesAfterTheFirstClient) {
    start(plain.substr(0, plain.size() - 1) + R"(, "speed": 10, "orders": [
        {"at_ms": 1000, "order": "press", "key": "W"},
        {"at_ms": 4000, "order": "release", "key": "W"},
        {"at_ms": 4000, "order": "press", "key": "S"}]})");
    EXPECT_EQ(toCome(), 3u);
    const auto began = std::chrono::steady_clock::now();
    const BoardClient first(folder_ + "/run");
    ASSERT_TRUE(becomesTrue([&] { return toCome() == 0; }));
    // Four seconds of the board's, a tenth of it here; how late it may be is the machine's affair.
    EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(399));
    const BoardClient second(folder_ + "/run");
    EXPECT_STREQ(order(R"({"order": "inputs"})")["inputs"][0]["keysDown"][0].GetString(), "KEY_S");
}

TEST_F(Sessions, RepeatedRunIsTheSameSession) {
    const std::string orders = R"([
        {"at_ms": 0, "order": "unplug", "device": "display"},
        {"at_ms": 20, "order": "plug", "device": "display"},
        {"at_ms": 33, "order": "payload-fault", "kind": "truncate", "count": 3, "seed": 9},
        {"at_ms": 33, "order": "stall", "device": "output"},
        {"at_ms": 40, "order": "resume", "device": "output"}])";
    start(plain.substr(0, plain.size() - 1) + ", \"orders\": " + orders + "}");
    const board::Scenario given = board::loadScenario(folder_ + "/start.json");
    const BoardClient client(folder_ + "/run");
    ASSERT_TRUE(becomesTrue([&] { return toCome() == 0; }));
    const board::Scenario once = saved();
    EXPECT_EQ(ordersOf(once), ordersOf(given));
    for (std::size_t i = 0; i < given.orders.size(); ++i)
        EXPECT_EQ(once.orders.at(i).at_ms, given.orders[i].at_ms) << i;
    EXPECT_EQ(once.document, given.document);
    fs::rename(folder_ + "/saved.json", folder_ + "/once.json");
    startFile(folder_ + "/once.json");
    const BoardClient again(folder_ + "/run");
    ASSERT_TRUE(becomesTrue([&] { return toCome() == 0; }));
    saved();
    EXPECT_EQ(textOf(folder_ + "/saved.json"), textOf(folder_ + "/once.json"));
}

TEST_F(Sessions, OwnOrdersMixWithRepeatedOnes) {
    start(plain.substr(0, plain.size() - 1) +
          R"(, "orders": [{"at_ms": 600000, "order": "lose-flip"}]})");
    const BoardClient client(folder_ + "/run");
    expectOk(R"({"order": "unplug", "device": "output"})");
    const board::Scenario session = saved();
    EXPECT_EQ(ordersOf(session), Texts{R"({"order": "unplug", "device": "output"})"})
        << "what has not happened yet is no part of the run";
    EXPECT_EQ(toCome(), 1u);
}

TEST_F(Sessions, RefusedAtReplayIsALineAndTheRestGoesOn) {
    testing::internal::CaptureStderr();
    start(plain.substr(0, plain.size() - 1) + R"(, "orders": [
        {"at_ms": 0, "order": "plug", "device": "camera", "description": "gone"},
        {"at_ms": 5, "order": "release", "key": "W"},
        {"at_ms": 5, "order": "unplug", "device": "camera"}]})");
    const BoardClient client(folder_ + "/run");
    EXPECT_TRUE(becomesTrue([&] { return toCome() == 0; }));
    EXPECT_FALSE(order(R"({"order": "state"})")["cameraPlugged"].GetBool());
    const std::string lines = testing::internal::GetCapturedStderr();
    const std::string wanted[] = {
        R"( the scenario's {"at_ms": 0, "order": "plug", "device": "camera", )"
        R"("description": "gone"} was refused: the camera is plugged in already)",
        R"( the scenario's {"at_ms": 5, "order": "release", "key": "W"} was refused: )"
        R"(KEY_W is not down)"};
    for (const std::string& line : wanted)
        EXPECT_NE(lines.find(line), std::string::npos) << lines;
    EXPECT_EQ(ordersOf(saved()), Texts{R"({"order": "unplug", "device": "camera"})"});
}

TEST_F(Sessions, HeldKeysAreThereWhileTheyAreDownAndWhenTheyEndBadly) {
    start(plain);
    OrderClient other(folder_ + "/run");
    other.send("{\"order\": \"hold\", \"key\": \"W\", \"ms\": 200}\n");
    ASSERT_TRUE(
        becomesTrue([&] { return order(R"({"order": "state"})")["ordersTaken"].GetUint() == 1; }));
    expectOk(R"({"order": "release", "key": "W"})");
    EXPECT_NE(other.line().find("was up before its time"), std::string::npos);
    const Texts wanted = {R"({"order": "hold", "key": "W", "ms": 200})",
                          R"({"order": "release", "key": "W"})"};
    EXPECT_EQ(ordersOf(saved()), wanted);
    errorOf(R"({"order": "hold", "key": "no-such-key", "ms": 1})");
    EXPECT_EQ(ordersOf(saved()), wanted);
}

TEST_F(Sessions, LongRunsAreAnsweredWholeAndEndlessOnesRefused) {
    start(plain);
    // 4000 bytes each: a recording that is no file is found wrong only when it is played.
    const std::string line =
        R"({"order": "recording", "name": "field:)" + std::string(4000, 'x') + "\"}";
    for (int i = 0; i < 200; ++i)
        expectOk(line);
    const auto answer = order(R"({"order": "session"})");
    EXPECT_EQ(answer["session"]["orders"].Size(), 200u);
    for (int i = 0; i < 600; ++i)
        expectOk(line);
    EXPECT_NE(errorOf(R"({"order": "session"})").find("longer than 3 MB"), std::string::npos);
    EXPECT_NE(errorOf(R"({"order": "session", "path": ")" + folder_ + "/saved.json\"}")
                  .find("not all taken down"),
              std::string::npos);
    expectOk(R"({"order": "unplug", "device": "camera"})");
}

TEST_F(Sessions, CatalogueOfTheDataFolder) {
    start(plain);
    const auto answer = order(R"({"order": "catalogue"})");
    const auto has = [&](const char* kind, const std::string& name) {
        for (const auto& entry : answer[kind].GetArray())
            if (entry["name"].GetString() == name)
                return true;
        return false;
    };
    EXPECT_TRUE(has("cameras", "logitech-c920-h264"));
    EXPECT_TRUE(has("displays", "synthetic-1080p60"));
    EXPECT_TRUE(has("sound", "synthetic-output"));
    EXPECT_TRUE(has("inputs", "keyboard"));
    EXPECT_TRUE(saved().orders.empty());
}

}  // namespace
}  // namespace boardtest
