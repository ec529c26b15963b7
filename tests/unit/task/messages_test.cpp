#include "control/task/autoadjustoffsettime.h"
#include "control/task/mediatypes.h"
#include "control/task/msgaudio.h"
#include "control/task/msgvideo.h"
#include "control/task/receive_handler.h"
#include "control/task/taskbase.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <new>
#include <sstream>

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

class Stage final : public TaskBase, public Receive_handler {
  public:
    int receive_handler(void* msg, unsigned int) override { return putq(msg); }
    bool queueAllow_angler() override { return getqSize() < 2; }
};

// Makes a message in memory that can still be looked at after its destructor ran.
template <typename Message>
void expectDestructorNullsItsPlanes() {
    alignas(Message) unsigned char memory[sizeof(Message)];
    auto* message = new (memory) Message;
    message->data[0] = new unsigned char[16];
    message->data[2] = new unsigned char[8];
    unsigned char** planes = message->data;
    message->~Message();
    for (int i = 0; i < 3; ++i) {
        // The store is part of the destructor's promise, so it is read through a volatile view.
        EXPECT_EQ(*static_cast<unsigned char* volatile*>(planes + i), nullptr) << i;
    }
}

}  // namespace

TEST(MsgVideo, BeginsAllZero) {
    const msgVideo message;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(message.data[i], nullptr);
        EXPECT_EQ(message.outData[i], nullptr);
        EXPECT_EQ(message.size[i], 0U);
        EXPECT_EQ(message.length[i], 0U);
    }
    EXPECT_EQ(message.pts, 0.0);
    EXPECT_EQ(message.spareTime, 0.0);
    EXPECT_EQ(message.width + message.height + message.virWidth + message.virHeight, 0U);
    EXPECT_EQ(message.format, 0U);
    EXPECT_FALSE(message.spareFlag);
}

TEST(MsgVideo, DoesNotTouchForeignPlanes) {
    unsigned char foreign[4] = {1, 2, 3, 4};
    {
        msgVideo message;
        message.outData[0] = foreign;
        message.outData[1] = foreign + 1;  // freeing either would end the program
        message.data[0] = new unsigned char[100];
    }
    EXPECT_EQ(foreign[0], 1);
    EXPECT_EQ(foreign[3], 4);
}

TEST(MsgVideo, DestructorNullsThePlanesItFreed) {
    expectDestructorNullsItsPlanes<msgVideo>();
}

TEST(MsgAudio, DestructorNullsThePlanesItFreed) {
    expectDestructorNullsItsPlanes<msgAudio>();
}

TEST(MsgAudio, BeginsAllZero) {
    const msgAudio message;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(message.data[i], nullptr);
        EXPECT_EQ(message.size[i], 0U);
        EXPECT_EQ(message.length[i], 0U);
    }
    EXPECT_EQ(message.pts, 0.0);
    EXPECT_EQ(message.channels + message.rate + message.spareParam, 0U);
    EXPECT_EQ(message.format, 0);
}

TEST(ReceiveHandler, ReachesTheStageBehindIt) {
    Stage stage;
    Receive_handler* link = &stage;
    EXPECT_NE(static_cast<void*>(link), static_cast<void*>(&stage));
    int message = 0;
    EXPECT_TRUE(link->queueAllow_angler());
    EXPECT_EQ(link->receive_handler(&message, 0), 1);
    EXPECT_EQ(link->receive_handler(&message, 0), 1);
    EXPECT_FALSE(link->queueAllow_angler());
    EXPECT_EQ(stage.getqSize(), 2);
}

TEST(AutoAdjustOffsetTime, AnEndWithoutAStartIsReportedAndNotCounted) {
    autoAdjustOffsetTime probe(2);
    CaptureStdout();
    probe.updateOffsetTime_end();
    EXPECT_EQ(GetCapturedStdout(), "autoAdjustOffsetTime invalid\n");
    EXPECT_EQ(probe.count, 0U);
    EXPECT_EQ(probe.sumMs, 0.0);
    EXPECT_EQ(probe.averageMs, 0.0);
}

TEST(AutoAdjustOffsetTime, AveragesUpToItsLimitAndThenDoesNothing) {
    autoAdjustOffsetTime probe(2);
    CaptureStdout();
    for (int i = 0; i < 2; ++i) {
        probe.updateOffsetTime_start();
        EXPECT_TRUE(probe.started);
        probe.updateOffsetTime_end();
        EXPECT_FALSE(probe.started);
    }
    EXPECT_EQ(probe.count, 2U);
    EXPECT_DOUBLE_EQ(probe.averageMs, probe.sumMs / 2);
    const double sum = probe.sumMs;
    probe.updateOffsetTime_start();
    EXPECT_FALSE(probe.started);
    probe.updateOffsetTime_end();
    EXPECT_EQ(probe.count, 2U);
    EXPECT_EQ(probe.sumMs, sum);
    EXPECT_EQ(GetCapturedStdout(), "");
}

TEST(AutoAdjustOffsetTime, MeasuresInMilliseconds) {
    autoAdjustOffsetTime probe(1);
    probe.updateOffsetTime_start();
    probe.startTime.tv_sec -= 2;  // as if the frame had taken two seconds longer
    probe.startTime.tv_usec -= 500;
    probe.updateOffsetTime_end();
    EXPECT_GE(probe.averageMs, 2000.5);
    EXPECT_LT(probe.averageMs, 4000.0);
    EXPECT_EQ(probe.averageMs, probe.sumMs);
}

TEST(UvcFmt, PrintsOneLineForACamerasModeAndNothingForAnother) {
    uvcFmt mode(1920, 1080, 30, fmtStr(0x47504A4D, "   Mjpeg   "));
    std::ostringstream out;
    out << mode;
    EXPECT_EQ(out.str(), "   Mjpeg   1920x1080@30\n");
    mode.fmt.fourcc = 0xFFFFFFFF;
    std::ostringstream silent;
    silent << mode;
    EXPECT_EQ(silent.str(), "");
}

TEST(UvcFmt, OrdersDescendAndTheBandwidthWraps) {
    const uvcFmt slow(640, 480, 30, {}), fast(320, 240, 60, {});
    EXPECT_TRUE(uvcFmt::cmp_fps(fast, slow));
    EXPECT_FALSE(uvcFmt::cmp_fps(slow, fast));
    EXPECT_FALSE(uvcFmt::cmp_fps(slow, slow));
    EXPECT_TRUE(uvcFmt::cmp_totalBandwidth(slow, fast));
    EXPECT_FALSE(uvcFmt::cmp_totalBandwidth(fast, slow));
    const uvcFmt wrapped(65536, 65536, 1, {});  // 2 to the power of 32
    EXPECT_TRUE(uvcFmt::cmp_totalBandwidth(fast, wrapped));
    EXPECT_FALSE(uvcFmt::cmp_totalBandwidth(wrapped, fast));
}

TEST(DecInfo, IsFourNumbersWithoutAnythingElse) {
    EXPECT_EQ(sizeof(decInfo), 16U);
    const decInfo mode;
    EXPECT_EQ(mode.format + mode.width + mode.height + mode.fps, 0U);
}
