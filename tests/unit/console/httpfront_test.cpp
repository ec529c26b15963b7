// The console's answers to friendly and unfriendly clients, with a board that only repeats orders.

#include "board/console/httpfront.h"
#include "board/console/livepart.h"
#include "board/console/reception.h"
#include "tests/support/httpclient.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <thread>

namespace {

using namespace board::console;
using support::HttpAnswer;
using support::httpGet;
using support::httpPost;
using support::Milliseconds;

// Answers each order with itself, under "got".
class RepeatingBoard {
  public:
    explicit RepeatingBoard(const std::string& folder) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = folder + "/order.sock";
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        socket_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(socket_, 64), 0);
        thread_ = std::thread([this] { run(); });
    }
    ~RepeatingBoard() {
        ::shutdown(socket_, SHUT_RDWR);
        thread_.join();
        ::close(socket_);
    }

  private:
    void run() {
        for (int client = 0; (client = ::accept(socket_, nullptr, nullptr)) >= 0;) {
            std::string line;
            for (char c = 0; ::recv(client, &c, 1, 0) == 1 && c != '\n';)
                line += c;
            const std::string answer = "{\"ok\": true, \"got\": " + line + "}\n";
            ::send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
            ::close(client);
        }
    }
    int socket_;
    std::thread thread_;
};

class HttpFrontTest : public testing::Test {
  protected:
    HttpFrontTest() : folder_(support::makeTemporaryFolder("front")) {
        std::filesystem::create_directories(folder_ + "/page/sub");
        std::ofstream(folder_ + "/page/index.html") << "<p>page";
        std::ofstream(folder_ + "/page/sub/x.js") << "x";
        std::ofstream(folder_ + "/page/secret.txt") << "no";
        std::ofstream(folder_ + "/outside.js") << "no";
        board_ = std::make_unique<RepeatingBoard>(folder_);
        page_ = std::make_unique<PageFiles>(folder_ + "/page");
        orders_ = std::make_unique<OrderClient>(folder_);
        views_ = std::make_unique<LiveViews>(folder_, [] { return false; });
        const int listening = listenOnLoopback(0);
        port_ = portOf(listening);
        StreamLimits limits;
        limits.request = limits.write = support::scaled(Milliseconds(700));
        front_ = std::make_unique<HttpFront>(
            ConsoleRooms{*page_, *orders_, gate_, bulletin_, *views_, "[]", folder_}, port_,
            limits);
        ReceptionLimits doors;
        doors.patience = support::scaled(Milliseconds(700));
        reception_ =
            std::make_unique<Reception>(listening, doors, [this](int socket, std::string received) {
                front_->serve(socket, std::move(received));
            });
    }
    ~HttpFrontTest() override {
        front_->endStreams();
        reception_.reset();
        views_.reset();
        board_.reset();
        std::filesystem::remove_all(folder_);
    }

    // The status of the answer to these bytes; 0: none.
    int statusOf(const std::string& bytes) {
        support::HttpConnection connection(port_);
        connection.send(bytes);
        return connection.readAnswer().status;
    }
    int getStatus(const std::string& path, const std::string& headers = "") {
        return httpGet(port_, path, headers).status;
    }
    std::string host() const { return "Host: 127.0.0.1:" + std::to_string(port_) + "\r\n"; }
    void expectHealthy() { EXPECT_EQ(httpGet(port_, "/health").body, "{\"ok\": true}\n"); }
    std::string post(const std::string& headers, const std::string& body = "") {
        return "POST /order HTTP/1.1\r\n" + host() + headers + "\r\n" + body;
    }

    const std::string folder_;
    unsigned short port_ = 0;
    OrderGate gate_{[] { return std::set<std::string>(); }};
    Bulletin bulletin_;
    std::unique_ptr<RepeatingBoard> board_;
    std::unique_ptr<PageFiles> page_;
    std::unique_ptr<OrderClient> orders_;
    std::unique_ptr<LiveViews> views_;
    std::unique_ptr<HttpFront> front_;
    std::unique_ptr<Reception> reception_;
};

TEST_F(HttpFrontTest, ServesThePageAndNothingBesideIt) {
    const HttpAnswer page = httpGet(port_, "/");
    EXPECT_EQ(page.status, 200);
    EXPECT_EQ(page.body, "<p>page");
    EXPECT_EQ(page.headers.at("content-security-policy"), "default-src 'self'");
    EXPECT_EQ(page.headers.at("x-content-type-options"), "nosniff");
    EXPECT_EQ(page.headers.at("cache-control"), "no-store");
    EXPECT_EQ(page.headers.at("referrer-policy"), "no-referrer");
    EXPECT_EQ(page.headers.at("x-frame-options"), "DENY");
    EXPECT_EQ(httpGet(port_, "/sub/x.js").body, "x");
    for (const char* path : {"/secret.txt", "/../outside.js", "/sub/../../outside.js",
                             "/%2e%2e/outside.js", "/sub", "/sub/", "//index.html", "/index.html/",
                             "/..%2foutside.js", "/sub/x.js%00", "/\\..\\outside.js"})
        EXPECT_EQ(getStatus(path), 404) << path;
    EXPECT_NE(getStatus("../outside.js"), 200);
    EXPECT_NE(getStatus("http://evil.example/"), 200);
}

TEST_F(HttpFrontTest, AnswersItsOwnPageOnly) {
    const std::string port = std::to_string(port_);
    for (const char* path : {"/", "/health", "/events", "/live/screen.mjpeg", "/nothing"}) {
        const std::string line = std::string("GET ") + path + " HTTP/1.1\r\n";
        EXPECT_EQ(statusOf(line + "Host: evil.example:" + port + "\r\n\r\n"), 403) << path;
        EXPECT_EQ(statusOf(line + "\r\n"), 403) << path;
        EXPECT_EQ(statusOf(line + host() + "Origin: http://evil.example\r\n\r\n"), 403) << path;
    }
    EXPECT_EQ(getStatus("/health", "Origin: http://127.0.0.1:" + port + "\r\n"), 200);
    EXPECT_EQ(statusOf("GET /health HTTP/1.1\r\nHost: localhost:" + port +
                       "\r\nOrigin: http://localhost:" + port + "\r\n\r\n"),
              200);
    EXPECT_EQ(statusOf(post("Origin: null\r\nContent-Type: application/json\r\n"
                            "Content-Length: 2\r\n",
                            "{}")),
              403);
}

TEST_F(HttpFrontTest, PassesOrdersOnThatItComposed) {
    const HttpAnswer answer = httpPost(port_, "/order", "{ \"key\":\"W\",\"order\" : \"press\"}");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, "{\"ok\": true, \"got\": {\"order\": \"press\", \"key\": \"W\"}}\n");
    const HttpAnswer refused = httpPost(port_, "/order", "{\"order\": \"quit\"}");
    EXPECT_EQ(refused.status, 400);
    EXPECT_EQ(refused.body,
              "{\"ok\": false, \"error\": \"\\\"quit\\\" is not an order for the page\"}\n");
    board_.reset();
    EXPECT_NE(httpPost(port_, "/order", "{\"order\": \"ptz\"}").body.find("\"ok\": false"),
              std::string::npos);
}

TEST_F(HttpFrontTest, RefusesBodiesWithoutReadingThem) {
    const std::string type = "Content-Type: application/json\r\n";
    EXPECT_EQ(statusOf(post(type + "Content-Length: 1073741824\r\n")), 413);
    EXPECT_EQ(statusOf(post(type + "Content-Length: 4097\r\n")), 413);
    EXPECT_EQ(statusOf(post(type + "Content-Length: 99999999999999999999999\r\n")), 413);
    EXPECT_EQ(statusOf(post(type + "Content-Length: -1\r\n")), 400);
    const std::string good = "{\"order\": \"ptz\"}";
    EXPECT_EQ(statusOf(post(type + "Content-Length: 16\r\n", good)), 200);
    EXPECT_EQ(statusOf(post(type + "Content-Length: 16\r\nContent-Length: 17\r\n", good)), 400);
    EXPECT_EQ(statusOf(post(type + "Transfer-Encoding: chunked\r\n", "2\r\n{}\r\n0\r\n\r\n")), 411);
    EXPECT_EQ(statusOf(post(type + "Content-Length: 5000\r\nExpect: 100-continue\r\n")), 413);
    EXPECT_EQ(statusOf(post("Content-Type: text/plain\r\nContent-Length: 2\r\n", "{}")), 415);
    EXPECT_EQ(statusOf(post(type + "Content-Encoding: gzip\r\nContent-Length: 2\r\n", "{}")), 415);
    EXPECT_EQ(statusOf("GET /health HTTP/1.1\r\n" + host() + "Content-Length: 5000\r\n\r\n"), 413);
    // The longest that is allowed.
    const std::string order = "{\"order\": \"ptz\"" + std::string(4096 - 16, ' ') + "}";
    EXPECT_EQ(httpPost(port_, "/order", order).status, 200);
    expectHealthy();
}

TEST_F(HttpFrontTest, KnowsTwoMethods) {
    for (const char* method : {"HEAD", "PUT", "DELETE", "OPTIONS", "PATCH", "TRACE", "POST"})
        EXPECT_NE(statusOf(std::string(method) + " / HTTP/1.1\r\n" + host() +
                           "Content-Length: 0\r\n\r\n"),
                  200)
            << method;
    EXPECT_EQ(getStatus("/order"), 405);
    EXPECT_EQ(getStatus("/live/sound?card=other"), 400);
    EXPECT_EQ(getStatus("/", "Range: bytes=1-2\r\n"), 200);
}

TEST_F(HttpFrontTest, RubbishEndsItsOwnConnectionOnly) {
    std::mt19937 random(5);
    for (int round = 0; round < 40; ++round) {
        support::HttpConnection connection(port_);
        std::string bytes = round % 2 == 0 ? "GET / HTTP/1.1\r\n" : "";
        for (unsigned length = random() % 3000; length > 0; --length)
            bytes += char(random());
        connection.send(bytes + "\r\n\r\n");
        EXPECT_TRUE(connection.waitForClose(Milliseconds(8000)));
    }
    // A line, and a head, without an end.
    for (const std::string piece : {"xxxxxxxxxxxxxxxx", "GET / HTTP/1.1\r\nX: y\r\n"}) {
        support::HttpConnection connection(port_);
        for (int i = 0; i < 5000 && connection.send(piece); ++i) {
        }
        EXPECT_TRUE(connection.waitForClose(Milliseconds(8000)));
    }
    expectHealthy();
}

TEST_F(HttpFrontTest, IdleConnectionsGiveWay) {
    std::vector<std::unique_ptr<support::HttpConnection>> idle;
    for (int i = 0; i < 300; ++i)
        idle.push_back(std::make_unique<support::HttpConnection>(port_));
    expectHealthy();
    EXPECT_TRUE(idle.front()->waitForClose(Milliseconds(8000)));
    EXPECT_TRUE(idle.back()->waitForClose(Milliseconds(8000)));
}

TEST_F(HttpFrontTest, SlowRequestsAreDropped) {
    support::HttpConnection head(port_), body(port_);
    head.send("GET / HTTP/1.1\r\nHo");
    body.send(post("Content-Type: application/json\r\nContent-Length: 100\r\n", "{"));
    EXPECT_TRUE(head.waitForClose(Milliseconds(8000)));
    EXPECT_TRUE(body.waitForClose(Milliseconds(8000)));
}

TEST_F(HttpFrontTest, ThirtyTwoStreamsAndNoMore) {
    std::vector<std::unique_ptr<support::HttpConnection>> streams;
    for (int i = 0; i < 32; ++i) {
        streams.push_back(std::make_unique<support::HttpConnection>(port_));
        streams.back()->send(support::getRequest(port_, "/events"));
        ASSERT_EQ(streams.back()->readHead().status, 200) << i;
    }
    EXPECT_EQ(getStatus("/live/screen.mjpeg"), 503);
    expectHealthy();
    bulletin_.setState("{\"n\": 1}");
    for (const auto& stream : streams)
        EXPECT_NE(stream->readUntil("\n\n").find("{\"n\": 1}"), std::string::npos);
    // A place is free once a viewer has gone.
    streams.pop_back();
    const auto deadline = support::Clock::now() + support::scaled(Milliseconds(5000));
    int status = 503;
    while (status == 503 && support::Clock::now() < deadline) {
        support::HttpConnection next(port_);
        next.send(support::getRequest(port_, "/live/screen.mjpeg"));
        status = next.readHead().status;
    }
    EXPECT_EQ(status, 200);
}

TEST_F(HttpFrontTest, AViewerThatReadsNothingIsDroppedAndHoldsNobodyUp) {
    support::HttpConnection lazy(port_), keen(port_);
    for (support::HttpConnection* viewer : {&lazy, &keen}) {
        viewer->send(support::getRequest(port_, "/live/screen.mjpeg"));
        ASSERT_EQ(viewer->readHead().status, 200);
    }
    std::atomic<bool> end{false};
    std::thread publisher([&] {
        LivePart part;
        part.jpeg.resize(300000, 'j');
        for (std::uint32_t frame = 0; !end; ++frame) {
            part.frame = frame;
            views_->screen().publish(std::make_shared<const std::string>(part.text()));
            std::this_thread::sleep_for(Milliseconds(5));
        }
    });
    const auto deadline = support::Clock::now() + support::scaled(Milliseconds(2500));
    unsigned parts = 0;
    long last = -1;
    while (support::Clock::now() < deadline) {
        const HttpAnswer part = support::readPart(keen);
        ASSERT_EQ(part.body.size(), 300000u);
        EXPECT_GT(std::stol(part.headers.at("x-frame")), last);
        last = std::stol(part.headers.at("x-frame"));
        ++parts;
    }
    EXPECT_GT(parts, 20u);
    EXPECT_TRUE(lazy.waitForClose(Milliseconds(5000)));
    end = true;
    publisher.join();
}

}  // namespace
