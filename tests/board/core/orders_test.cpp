#include <linux/videodev2.h>
#include <sys/socket.h>

#include <chrono>
#include <memory>
#include <string>

#include "tests/board/core/boardclient.h"
#include "tests/board/core/servedboard.h"

namespace boardtest {
namespace {

const std::string plainOk = "{\"ok\": true}";

bool refused(const std::string& line, const std::string& why) {
    return line.rfind("{\"ok\": false, \"error\": ", 0) == 0 && line.find(why) != std::string::npos;
}

TEST_F(ServedBoard, OrderFailReachesTheDevice) {
    OrderClient orders(folder_);
    EXPECT_EQ(orders.order(R"({"order":"fail","ioctl":"VIDIOC_QUERYCAP","nth":2,"errno":"EIO"})"),
              plainOk);
    BoardClient client(folder_);
    client.open(fakeNode);
    const auto argument = bytesOf(v4l2_capability{});
    const auto call = [&] {
        return client.ioctl(std::uint32_t(VIDIOC_QUERYCAP), argument).header.result;
    };
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(call(), -EIO);
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(
        orders.order(R"({"order":"fail","ioctl":"VIDIOC_QUERYCAP","nth":1,"errno":19,"count":0})"),
        plainOk);
    EXPECT_EQ(call(), -ENODEV);
    EXPECT_EQ(call(), -ENODEV);
    EXPECT_EQ(orders.order(R"({"order":"faults-clear"})"), plainOk);
    EXPECT_EQ(call(), 0);
}

TEST_F(ServedBoard, GarbageGetsAnErrorLineAndTheNextOrderIsServed) {
    OrderClient orders(folder_);
    EXPECT_TRUE(refused(orders.order("hello"), "line 1, column 1"));
    EXPECT_TRUE(refused(orders.order("[]"), "must be an object"));
    EXPECT_TRUE(refused(orders.order("{}"), "\\\"order\\\" is missing"));
    EXPECT_TRUE(refused(orders.order(R"({"order":7})"), "$.order: must be a text"));
    EXPECT_TRUE(refused(orders.order(R"({"order":"dance"})"), "unknown order \\\"dance\\\""));
    EXPECT_TRUE(refused(orders.order(R"({"order":"parks","x":1})"), "unknown key \\\"x\\\""));
    EXPECT_TRUE(refused(orders.order(R"({"order":"clock-step"})"), "\\\"ms\\\" is missing"));
    EXPECT_TRUE(refused(orders.order(R"({"order":"clock-step","ms":"5"})"), "$.ms"));
    EXPECT_TRUE(refused(orders.order(R"({"order":"clock-step","ms":1e30})"), "$.ms"));
    EXPECT_TRUE(refused(orders.order(R"({"order":"clock-step","ms":1,"ms":2})"), "twice"));
    EXPECT_TRUE(refused(orders.order(R"({"order":"plug","device":"camera"})"), "does not serve"));
    EXPECT_TRUE(refused(orders.order(std::string(20000, '[')), "order: line 1"));
    EXPECT_TRUE(
        refused(orders.order(R"({"order":"fail","ioctl":"X","nth":1,"errno":5})"), "$.ioctl"));
    EXPECT_TRUE(refused(orders.order(R"({"order":"fail","ioctl":"VIDIOC_QBUF","nth":0,"errno":5})"),
                        "$.nth"));
    EXPECT_TRUE(refused(
        orders.order(R"({"order":"fail","ioctl":"VIDIOC_QBUF","nth":1,"errno":"EX"})"), "$.errno"));
    orders.send("\n \r\n");  // empty lines are nothing
    EXPECT_EQ(orders.order(R"({"order":"parks"})"), "{\"ok\": true, \"parks\": []}");
}

TEST_F(ServedBoard, RandomBytesOnTheOrderSocket) {
    std::string noise;
    std::uint32_t state = 1;
    for (int i = 0; i < 200000; ++i) {
        state = state * 1664525 + 1013904223;
        noise += char(state >> 24);
    }
    for (int round = 0; round < 20; ++round) {
        OrderClient orders(folder_);
        ::send(orders.descriptor(), noise.data() + round * 5000, 60000,
               MSG_NOSIGNAL | MSG_DONTWAIT);
    }
    OrderClient orders(folder_);
    EXPECT_EQ(orders.order(R"({"order":"faults-clear"})"), plainOk);
}

TEST_F(ServedBoard, LineTooLong) {
    OrderClient orders(folder_);
    ::send(orders.descriptor(), std::string(100000, 'x').data(), 100000,
           MSG_NOSIGNAL | MSG_DONTWAIT);
    EXPECT_TRUE(refused(orders.line(), "longer than 64 KB"));
    EXPECT_EQ(orders.line(), "closed");
}

TEST_F(ServedBoard, SeveralLinesAtOnceAndPiecewise) {
    OrderClient orders(folder_);
    orders.send("{\"order\":\"faults-clear\"}\n{\"order\":\"parks\"}\n{\"ord");
    EXPECT_EQ(orders.line(), plainOk);
    EXPECT_EQ(orders.line(), "{\"ok\": true, \"parks\": []}");
    orders.send("er\":\"faults-clear\"}\n");
    EXPECT_EQ(orders.line(), plainOk);
    orders.send("{\"order\":\"faults-clear\"}\n");
    orders.endSending();
    EXPECT_EQ(orders.line(), plainOk);
    EXPECT_EQ(orders.line(), "closed");
}

TEST_F(ServedBoard, ParksInThePage) {
    OrderClient orders(folder_);
    EXPECT_EQ(orders.order(R"({"order":"park","call":"VIDIOC_DQBUF","thread":"Capture"})"),
              "{\"ok\": true, \"index\": 0}");
    EXPECT_EQ(orders.order(R"({"order":"park","call":"select"})"), "{\"ok\": true, \"index\": 1}");
    auto& page = board_->page().page();
    EXPECT_STREQ(page.parks[0].call, "ioctl:0xc0585611");
    EXPECT_STREQ(page.parks[0].thread, "Capture");
    EXPECT_STREQ(page.parks[1].call, "select");
    EXPECT_EQ(page.parkCount.load(), 2u);
    page.parks[0].held.fetch_add(3);
    EXPECT_EQ(orders.order(R"({"order":"parks"})"),
              "{\"ok\": true, \"parks\": [{\"index\": 0, \"call\": \"VIDIOC_DQBUF\", \"thread\": "
              "\"Capture\", \"held\": 3}, {\"index\": 1, \"call\": \"select\", \"thread\": \"\", "
              "\"held\": 0}]}");
    EXPECT_EQ(orders.order(R"({"order":"unpark","index":0})"), plainOk);
    EXPECT_EQ(page.parks[0].active.load(), 0u);
    EXPECT_TRUE(refused(orders.order(R"({"order":"unpark","index":0})"), "no such park"));
    EXPECT_EQ(orders.order(R"({"order":"unpark","index":"all"})"), plainOk);
    EXPECT_EQ(page.parkCount.load(), 0u);
    EXPECT_TRUE(refused(orders.order(R"({"order":"park","call":"VIDIOC_NO"})"), "$.call"));
    for (unsigned i = 0; i < board::wire::maxParks; ++i)
        orders.order(R"({"order":"park","call":"read"})");
    EXPECT_TRUE(refused(orders.order(R"({"order":"park","call":"read"})"), "in use"));
}

TEST_F(ServedBoard, ClockSteps) {
    OrderClient orders(folder_);
    orders.order(R"({"order":"clock-step","ms":3600000})");
    EXPECT_EQ(orders.order(R"({"order":"clock-step","ms":-1600000})"),
              "{\"ok\": true, \"stepped_ms\": 2000000}");
    EXPECT_EQ(board_->page().page().realtimeStep_ns.load(), 2000000000000);
    EXPECT_TRUE(refused(orders.order(R"({"order":"clock-step","ms":315576000000})"), "ten years"));
}

TEST_F(ServedBoard, OrderThatFinishesLaterKeepsItsPlaceInTheRow) {
    OrderClient orders(folder_), other(folder_);
    orders.send("{\"order\":\"picture\",\"path\":\"/x\"}\n{\"order\":\"faults-clear\"}\n");
    ASSERT_TRUE(becomesTrue([&] { return bool(pending_); }));
    EXPECT_EQ(other.order(R"({"order":"faults-clear"})"), plainOk) << "others are not held up";
    onLoop([&] {
        board::OrderResult result;
        result.error = "no screen";
        pending_(result);
    });
    EXPECT_TRUE(refused(orders.line(), "no screen"));
    EXPECT_EQ(orders.line(), plainOk);
}

TEST_F(ServedBoard, AnswerForAClientThatLeft) {
    auto orders = std::make_unique<OrderClient>(folder_);
    orders->send("{\"order\":\"picture\",\"path\":\"/x\"}\n");
    ASSERT_TRUE(becomesTrue([&] { return bool(pending_); }));
    orders.reset();
    onLoop([&] { pending_({}); });
    OrderClient other(folder_);
    EXPECT_EQ(other.order(R"({"order":"faults-clear"})"), plainOk);
}

TEST_F(ServedBoard, OrderClientThatNeverReadsIsDropped) {
    OrderClient orders(folder_);
    const std::string line = "{\"order\":\"" + std::string(2000, 'x') + "\"}\n";
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    bool dropped = false;
    while (!dropped && std::chrono::steady_clock::now() < deadline)
        dropped = ::send(orders.descriptor(), line.data(), line.size(),
                         MSG_NOSIGNAL | MSG_DONTWAIT) < 0 &&
                  errno == EPIPE;
    EXPECT_TRUE(dropped);
    OrderClient other(folder_);
    EXPECT_EQ(other.order(R"({"order":"faults-clear"})"), plainOk);
}

}  // namespace
}  // namespace boardtest
