#include "tests/support/board.h"

#include "tests/support/ordertext.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <rapidjson/error/en.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace support {

namespace {

constexpr Milliseconds answerPatience(10000);

}  // namespace

Board::Board(const std::string& scenario, unsigned speed)
    : folder_(makeTemporaryFolder("board-")), speed_(speed) {
    Process::Start start;
    start.command = {daemonPath(), "--run", folder_, "--scenario", scenario};
    if (speed != 1) {
        start.command.insert(start.command.end(), {"--speed", std::to_string(speed)});
    }
    daemon_ = std::make_unique<Process>(start);
    if (!daemon_->out().waitForMatch("^ready", Milliseconds(30000))) {
        throw std::runtime_error("the board did not come up: " + daemon_->out().text() +
                                 daemon_->err().text());
    }
    connect();
}

Board::~Board() {
    if (socket_ >= 0) {
        close(socket_);
    }
    EXPECT_TRUE(daemon_->running()) << "the board's daemon ended by itself";
    daemon_->signal(SIGTERM);
    const std::optional<int> status = daemon_->waitForEnd(Milliseconds(10000));
    EXPECT_TRUE(status.has_value()) << "the board's daemon does not end";
    EXPECT_EQ(status.value_or(-1), 0)
        << "the board's daemon: " << describeStatus(status.value_or(-1)) << "\n"
        << daemon_->err().text();
    EXPECT_FALSE(std::filesystem::exists(folder_ + "/order.sock"));
    EXPECT_FALSE(std::filesystem::exists(folder_ + "/board.sock"));
    if (testing::Test::HasFailure()) {
        std::printf("board of this test: %s\n", folder_.c_str());
    } else {
        std::filesystem::remove_all(folder_);
    }
}

void Board::connect() {
    socket_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = folder_ + "/order.sock";
    if (path.size() >= sizeof address.sun_path) {
        throw std::runtime_error("too long for a socket's name: " + path);
    }
    std::strcpy(address.sun_path, path.c_str());
    if (::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("cannot connect to " + path);
    }
}

std::string Board::exchange(const std::string& line) {
    const std::string message = line + "\n";
    if (send(socket_, message.data(), message.size(), MSG_NOSIGNAL) != ssize_t(message.size())) {
        throw std::runtime_error("the board does not take orders any more");
    }
    const auto deadline = Clock::now() + scaled(answerPatience);
    std::size_t end;
    while ((end = received_.find('\n')) == std::string::npos) {
        const auto left = std::chrono::duration_cast<Milliseconds>(deadline - Clock::now()).count();
        pollfd watched{socket_, POLLIN, 0};
        char piece[4096];
        const ssize_t count = left > 0 && poll(&watched, 1, int(left)) == 1
                                  ? recv(socket_, piece, sizeof piece, 0)
                                  : -1;
        if (count <= 0) {
            throw std::runtime_error("no answer from the board to " + line);
        }
        received_.append(piece, std::size_t(count));
    }
    const std::string answer = received_.substr(0, end);
    received_.erase(0, end + 1);
    return answer;
}

rapidjson::Document Board::tryOrder(const std::string& json) {
    const std::string answer = exchange(json);
    rapidjson::Document parsed;
    if (parsed.Parse(answer.c_str()).HasParseError() || !parsed.IsObject()) {
        throw std::runtime_error("the board's answer is no JSON object: " + answer);
    }
    return parsed;
}

rapidjson::Document Board::order(const std::string& json) {
    rapidjson::Document answer = tryOrder(json);
    EXPECT_TRUE(answer.HasMember("ok") && answer["ok"].IsTrue())
        << json << " was answered with "
        << (answer.HasMember("error") ? answer["error"].GetString() : "something without an error");
    return answer;
}

void Board::plug(const std::string& device) {
    order(OrderText("plug").with("device", device).text());
}

void Board::unplug(const std::string& device) {
    order(OrderText("unplug").with("device", device).text());
}

void Board::plug(const std::string& device, const std::string& description) {
    order(OrderText("plug").with("device", device).with("description", description).text());
}

void Board::stallCamera(bool stalled) {
    order(OrderText(stalled ? "stall" : "resume").with("device", "camera").text());
}

void Board::stall(const std::string& device, bool stalled) {
    order(OrderText(stalled ? "stall" : "resume").with("device", device).text());
}

void Board::setClockError(const std::string& device, std::int32_t ppm) {
    order(OrderText("clock-error").with("device", device).with("ppm", std::int64_t(ppm)).text());
}

void Board::xrun(const std::string& device) {
    order(OrderText("xrun").with("device", device).text());
}

void Board::suspend(const std::string& device, bool brief) {
    order(OrderText("suspend")
              .with("device", device)
              .with("action", brief ? "brief" : "hold")
              .text());
}

void Board::grant(const std::string& device, std::uint32_t rate, std::uint32_t period) {
    order(OrderText("grant")
              .with("device", device)
              .with("rate", std::int64_t(rate))
              .with("period", std::int64_t(period))
              .text());
}

void Board::failOpenings(const std::string& device, int error, unsigned count) {
    order(OrderText("open-fails")
              .with("device", device)
              .with("errno", std::int64_t(error))
              .with("count", std::int64_t(count))
              .text());
}

void Board::hear(const std::string& source) {
    order(OrderText("hear").with("name", source).text());
}

void Board::recordSound(const std::string& path) {
    order(OrderText("record-sound").with("action", "start").with("path", path).text());
}

std::uint64_t Board::stopSound() {
    return count(order(OrderText("record-sound").with("action", "stop").text()), "frames");
}

void Board::loseFlip() {
    order(OrderText("lose-flip").text());
}

void Board::holdFlips(bool held) {
    order(OrderText("flips").with("action", held ? "hold" : "go").text());
}

void Board::fail(const std::string& ioctlName, unsigned nth, int error, unsigned count) {
    order(OrderText("fail")
              .with("ioctl", ioctlName)
              .with("nth", std::int64_t(nth))
              .with("errno", std::int64_t(error))
              .with("count", std::int64_t(count))
              .text());
}

void Board::clearFaults() {
    order(OrderText("faults-clear").text());
}

void Board::park(const std::string& call, const std::string& thread) {
    order(OrderText("park").with("call", call).with("thread", thread).text());
}

void Board::unpark() {
    order(OrderText("unpark").with("index", "all").text());
}

void Board::setPayload(std::uint32_t bytes, unsigned frames) {
    order(OrderText("payload")
              .with("bytes", std::int64_t(bytes))
              .with("count", std::int64_t(frames))
              .text());
}

void Board::setRecording(const std::string& recording) {
    order(OrderText("recording").with("name", recording).text());
}

void Board::stepClock(std::int64_t seconds) {
    order(OrderText("clock-step").with("ms", seconds * 1000).text());
}

void Board::resetFigures() {
    order(OrderText("figures-reset").text());
}

CameraFigures Board::camera() {
    const rapidjson::Document answer = order(OrderText("figures").text());
    const rapidjson::Value& camera = member(answer, "camera");
    CameraFigures figures;
    figures.delivered = count(camera, "delivered");
    figures.lost = count(camera, "lost");
    figures.width = std::uint32_t(count(camera, "width"));
    figures.height = std::uint32_t(count(camera, "height"));
    figures.streaming = member(camera, "streaming").GetBool();
    figures.openHandles = unsigned(count(camera, "openHandles"));
    figures.node = member(order(OrderText("state").text()), "cameraNode").GetString();
    return figures;
}

SoundFigures Board::sound(const std::string& device) {
    const rapidjson::Document answer = order(OrderText("figures").text());
    const rapidjson::Value& stream =
        member(member(answer, device.c_str()), device == "output" ? "playback" : "capture");
    SoundFigures figures;
    figures.open = member(stream, "open").GetBool();
    figures.state = member(stream, "state").GetString();
    figures.format = member(stream, "format").GetString();
    figures.rate = std::uint32_t(count(stream, "rate"));
    figures.channels = std::uint32_t(count(stream, "channels"));
    figures.periodFrames = std::uint32_t(count(stream, "periodFrames"));
    figures.bufferFrames = std::uint32_t(count(stream, "bufferFrames"));
    figures.frames = count(stream, "frames");
    figures.periods = count(stream, "periods");
    figures.starts = count(stream, "starts");
    figures.xruns = count(stream, "xruns");
    figures.missing = count(stream, "missing");
    figures.queuedFrames = count(stream, device == "output" ? "queuedFrames" : "unreadFrames");
    return figures;
}

DisplayFigures Board::display() {
    const rapidjson::Document answer = order(OrderText("figures").text());
    const rapidjson::Value& display = member(answer, "display");
    DisplayFigures figures;
    figures.flips = count(display, "flips");
    figures.shown = count(display, "shown");
    figures.repeated = count(display, "repeated");
    figures.skipped = count(display, "skipped");
    figures.outOfOrder = count(display, "outOfOrder");
    figures.overwritten = count(display, "overwritten");
    figures.lastFrame = std::uint32_t(count(display, "lastFrame"));
    figures.latencyMedian_ms = number(display, "latencyMedian_ms");
    figures.latencyP95_ms = number(display, "latencyP95_ms");
    figures.latencyP99_ms = number(display, "latencyP99_ms");
    figures.mode = member(display, "mode").GetString();
    return figures;
}

namespace {

// Asking is the only way to learn the board's figures; ten times a second does not disturb it.
template <typename Ask>
bool askUntil(Milliseconds patience, const Ask& holds) {
    const auto deadline = Clock::now() + scaled(patience);
    while (!holds()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(Milliseconds(100));
    }
    return true;
}

}  // namespace

bool Board::waitForDisplay(const std::function<bool(const DisplayFigures&)>& wanted,
                           Milliseconds patience) {
    return askUntil(patience, [&] { return wanted(display()); });
}

bool Board::waitForCamera(const std::function<bool(const CameraFigures&)>& wanted,
                          Milliseconds patience) {
    return askUntil(patience, [&] { return wanted(camera()); });
}

bool Board::waitForPtz(const std::function<bool(const PtzFigures&)>& wanted,
                       Milliseconds patience) {
    return askUntil(patience, [&] { return wanted(ptz()); });
}

bool Board::waitForSound(const std::string& device,
                         const std::function<bool(const SoundFigures&)>& wanted,
                         Milliseconds patience) {
    return askUntil(patience, [&] { return wanted(sound(device)); });
}

bool Board::waitForPark(Milliseconds patience) {
    return askUntil(patience, [this] {
        const rapidjson::Document answer = order(OrderText("parks").text());
        for (const rapidjson::Value& park : member(answer, "parks").GetArray()) {
            if (count(park, "held") > 0) {
                return true;
            }
        }
        return false;
    });
}

}  // namespace support
