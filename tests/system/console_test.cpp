// The console in front of the real board and application, and clients that mean it harm.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <thread>

#include <opencv2/imgproc.hpp>

#include "board/console/jpegdecoder.h"
#include "tests/support/console.h"
#include "tests/support/httpclient.h"
#include "tests/support/lateness.h"
#include "tests/support/scenarios.h"
#include "tests/support/screenshot.h"
#include "tests/system/soundbench.h"

namespace {

using namespace support;

bool waitUntil(const std::function<bool()>& holds, Milliseconds patience = Milliseconds(10000)) {
    const auto deadline = Clock::now() + scaled(patience);
    while (!holds()) {
        if (Clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(Milliseconds(5));
    }
    return true;
}

double psnr_dB(const cv::Mat& one, const cv::Mat& other) {
    cv::Mat difference;
    cv::absdiff(one, other, difference);
    difference.convertTo(difference, CV_32F);
    const cv::Scalar squares = cv::sum(difference.mul(difference));
    const double mean = (squares[0] + squares[1] + squares[2]) / (3.0 * double(one.total()));
    return mean > 0 ? 10 * std::log10(255 * 255 / mean) : 99;
}

// Blue, green, red.
cv::Mat decoded(const std::string& jpeg) {
    board::console::BgrxPicture picture;
    if (!board::console::decodeJpeg(reinterpret_cast<const std::uint8_t*>(jpeg.data()), jpeg.size(),
                                    4096, picture))
        return {};
    const cv::Mat whole(int(picture.height), int(picture.width), CV_8UC4, picture.bytes.data());
    cv::Mat colours;
    cv::cvtColor(whole, colours, cv::COLOR_BGRA2BGR);
    return colours;
}

cv::Mat screenshotOf(Board& board, int width, int height) {
    Rgb rgb = takeScreenshot(board);
    if (rgb.bytes.empty())
        return {};
    const cv::Mat whole(int(rgb.height), int(rgb.width), CV_8UC3, rgb.bytes.data());
    cv::Mat small, colours;
    cv::resize(whole, small, cv::Size(width, height), 0, 0, cv::INTER_AREA);
    cv::cvtColor(small, colours, cv::COLOR_RGB2BGR);
    return colours;
}

// The screen stands still, so that both show the same picture.
TEST(Console, TheLivePictureIsTheScreen) {
    Board board(benchScenario("full-30"));
    Application application(board);
    application.expectPlaying();
    ASSERT_TRUE(
        board.waitForDisplay([](const auto& now) { return now.shown > 5; }, Milliseconds(20000)));
    Console console(board);
    HttpConnection stream(console.port());
    stream.send(getRequest(console.port(), "/live/screen.mjpeg"));
    const HttpAnswer head = stream.readHead();
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.headers.at("content-type"), "multipart/x-mixed-replace; boundary=picture");
    board.holdFlips(true);
    const std::string frame = std::to_string(board.display().lastFrame);
    HttpAnswer part;
    ASSERT_TRUE(waitUntil([&] {
        part = readPart(stream);
        return part.headers["x-frame"] == frame;
    })) << "no picture of frame "
        << frame << ", the last is of " << part.headers["x-frame"];
    EXPECT_EQ(part.headers["x-size"], "1920x1080");
    EXPECT_GT(std::atof(part.headers["x-age-ms"].c_str()), 0);
    const cv::Mat live = decoded(part.body), screen = screenshotOf(board, 1280, 720);
    board.holdFlips(false);
    ASSERT_EQ(live.size(), cv::Size(1280, 720));
    ASSERT_EQ(screen.size(), live.size());
    const double likeness_dB = psnr_dB(live, screen);
    std::printf("the live picture is like the screen by %.1f dB\n", likeness_dB);
    EXPECT_GT(likeness_dB, 28);
    // The stored picture is the screen itself.
    EXPECT_EQ(httpGet(console.port(), "/screen.png").body.substr(1, 3), "PNG");
}

TEST(Console, KeysOnThePageMoveTheCamera) {
    Board board(benchScenario("small-remote"));
    Application application(board);
    application.expectPlaying();
    ASSERT_TRUE(application.out().waitForMatch("^/dev/input/event0: open, fd = [0-9]+$",
                                               Milliseconds(10000)));
    Console console(board);
    const auto order = [&](const std::string& word) {
        return httpPost(console.port(), "/order", "{\"order\": \"" + word + "\", \"key\": \"W\"}");
    };
    EXPECT_EQ(order("press").status, 200);
    EXPECT_TRUE(waitUntil([&] { return board.ptz().tiltSpeed == 10; })) << board.ptz().tiltSpeed;
    EXPECT_EQ(order("release").status, 200);
    EXPECT_TRUE(waitUntil([&] { return board.ptz().tiltSpeed == 0; })) << board.ptz().tiltSpeed;
}

TEST(Console, TellsTheStateAndTheLog) {
    Board board(benchScenario("small"));
    Application application(board);
    application.expectPlaying();
    Console console(board);
    console.writeLog("statue: STATUE_POOL_OPENDEVICE ==> STATUE_POOL_PLAY\nodd \xff\n");
    HttpConnection events(console.port());
    events.send(getRequest(console.port(), "/events"));
    EXPECT_EQ(events.readHead().headers["content-type"], "text/event-stream");
    EXPECT_EQ(events.readUntil("\n\n").substr(0, 15), "event: history\n");
    const std::string log = events.readUntil("\xef\xbf\xbd");
    EXPECT_NE(log.find("\"text\": \"odd "), std::string::npos);
    rapidjson::Document all;
    ASSERT_TRUE(waitUntil([&] {
        events.readUntil("event: state\ndata: ");
        all.Parse(events.readUntil("\n\n").c_str());
        return !all.HasParseError() && all["age"]["shown"].GetUint64() > 0;
    }));
    EXPECT_TRUE(all["application"]["running"].GetBool());
    EXPECT_TRUE(all["state"]["ok"].GetBool());
    EXPECT_GT(all["figures"]["camera"]["delivered"].GetUint64(), 0u);
    EXPECT_GT(all["age"]["median_ms"].GetDouble(), 0);
    EXPECT_TRUE(all["inputs"].IsArray());
    EXPECT_STREQ(all["supervisor"]["state"].GetString(), "STATUE_POOL_PLAY");
    ASSERT_EQ(all["supervisor"]["transitions"].Size(), 1u);
    EXPECT_EQ(all["supervisor"]["transitions"][0]["count"].GetUint64(), 1u);
}

// The samples of the stream, as they were recorded by the board itself.
TEST(Console, ListensToWhatTheOutputPlays) {
    Board board(soundScenario({}, "ramp"));
    Application application(board);
    application.expectPlaying();
    Console console(board);
    ASSERT_TRUE(board.waitForSound(
        "output", [](const auto& now) { return now.frames > 48000; }, Milliseconds(20000)));
    board.recordSound(board.folder() + "/played.wav");
    HttpConnection stream(console.port());
    stream.send(getRequest(console.port(), "/live/sound?card=output"));
    EXPECT_EQ(stream.readHead().headers["content-type"], "audio/wav");
    const std::string head = stream.read(44);
    ASSERT_EQ(head.substr(0, 4), "RIFF");
    constexpr std::size_t frames = 48000;
    const std::string heard = stream.read(frames * 4, Milliseconds(20000));
    ASSERT_EQ(heard.size(), frames * 4);
    board.stopSound();
    const Recorded played = readRecorded(board.folder() + "/played.wav");
    const std::string bytes(reinterpret_cast<const char*>(played.samples.data()),
                            played.samples.size() * 2);
    EXPECT_NE(bytes.find(heard), std::string::npos) << "of " << played.frames() << " frames";
}

std::string bodyRequest(unsigned short port, const std::string& headers) {
    return "POST /order HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
           "\r\nContent-Type: application/json\r\n" + headers + "\r\n";
}

// Sends until the console closes; how many bytes that took.
std::size_t sendWithoutEnd(unsigned short port, const std::string& head, const std::string& piece) {
    constexpr std::size_t gigabyte = 1u << 30;
    HttpConnection connection(port);
    connection.send(head);
    std::size_t sent = 0;
    while (sent < gigabyte && connection.send(piece, Milliseconds(2000)))
        sent += piece.size();
    return sent;
}

struct Troublemakers {
    explicit Troublemakers(unsigned short port) {
        const auto open = [&](const std::string& path) {
            connections.push_back(std::make_unique<HttpConnection>(port));
            connections.back()->send(getRequest(port, path));
        };
        const char* paths[] = {"/live/screen.mjpeg", "/live/camera.mjpeg", "/events"};
        for (int i = 0; i < 10; ++i)
            open(paths[i % 3]);
        for (int i = 0; i < 200; ++i)
            connections.push_back(std::make_unique<HttpConnection>(port));
    }
    // Ten streams are opened and nothing of them is read; two hundred say nothing at all.
    std::vector<std::unique_ptr<HttpConnection>> connections;
};

TEST(Console, TroublemakersDisturbNobody) {
    Board board(benchScenario("small"));
    Application application(board);
    application.expectPlaying();
    ASSERT_TRUE(
        board.waitForDisplay([](const auto& now) { return now.shown > 30; }, Milliseconds(20000)));
    Console console(board);
    const unsigned short port = console.port();
    constexpr std::size_t little = 64u << 20;  // what sockets hold at most, and far from a gigabyte
    const LatenessProbe probe;
    std::uint64_t lost = 1;
    for (int attempt = 0; attempt < 3 && lost > 0; ++attempt) {
        const CameraFigures before = board.camera();
        const Troublemakers troublemakers(port);
        const std::string piece(1u << 20, 'x');
        EXPECT_LT(sendWithoutEnd(port, bodyRequest(port, "Content-Length: 1073741824\r\n"), piece),
                  little);
        EXPECT_LT(sendWithoutEnd(port, bodyRequest(port, "Transfer-Encoding: chunked\r\n"),
                                 "100000\r\n" + piece + "\r\n"),
                  little);
        EXPECT_LT(sendWithoutEnd(port, "\1\2\3 garbage \xff", piece), little);
        ASSERT_TRUE(board.waitForCamera(
            [&](const auto& now) { return now.delivered >= before.delivered + 60; },
            Milliseconds(20000)));
        EXPECT_EQ(httpGet(port, "/health").body, "{\"ok\": true}\n");
        EXPECT_EQ(httpPost(port, "/order", "{\"order\": \"state\"}").status, 200);
        lost = board.camera().lost - before.lost;
    }
    EXPECT_TRUE(board.daemon().running());
    EXPECT_LT(console.process().figures().resident_kB, 200000u);
    if (lost > 0 && probe.away() >= unusableAway) {
        GTEST_SKIP() << notJudged(probe.away());
    }
    EXPECT_EQ(lost, 0u) << "frames for which no buffer was queued";
}

TEST(Console, EndsWhoeverIsConnected) {
    Board board(benchScenario("small"), 4);
    Console console(board);
    const Troublemakers troublemakers(console.port());
    EXPECT_EQ(httpGet(console.port(), "/health").status, 200);
    EXPECT_EQ(httpGet(console.port(), "/health", "Origin: http://evil.example\r\n").status, 403);
    console.end();
}

TEST(Console, SaysWhatIsWrongWithItsOptions) {
    Board board(benchScenario("small"), 4);
    const auto complaintAbout = [&](const std::vector<std::string>& options) {
        Process::Start start;
        start.command = {consolePath()};
        start.command.insert(start.command.end(), options.begin(), options.end());
        Process process(start);
        const auto status = process.waitForEnd(Milliseconds(10000));
        EXPECT_TRUE(status && *status != 0);
        return process.err().text();
    };
    const std::string folder = board.folder();
    EXPECT_NE(complaintAbout({"--board", folder}).find("--log"), std::string::npos);
    EXPECT_NE(complaintAbout({"--nonsense"}).find("--nonsense"), std::string::npos);
    Console console(board);
    EXPECT_NE(complaintAbout({"--board", folder, "--log", "x", "--err", "y", "--page",
                              folder + "/console-page", "--port", std::to_string(console.port())})
                  .find("port " + std::to_string(console.port())),
              std::string::npos);
    EXPECT_NE(complaintAbout({"--board", folder, "--log", "x", "--err", "y", "--port", "70000"})
                  .find("70000"),
              std::string::npos);
}

}  // namespace
