// The camera-control task with a camera and receivers that the test plays.
#pragma once

#include "control/camera/obsbot.h"
#include "tests/unit/camera/fakerig.h"
#include "tests/unit/task/printed.h"
#include "tests/unit/task/waiting.h"

#include <memory>
#include <string>
#include <vector>

using Told = std::vector<std::string>;

class RemoteBench : public testing::Test {
  protected:
    void SetUp() override {
        ObsBot::dormantStatus = 0;
        testing::internal::CaptureStdout();
    }
    void TearDown() override {
        if (bot != nullptr) {
            end();
        }
        EXPECT_EQ(rig.openDescriptors(), 0U);
        ObsBot::dormantStatus = 0;
    }
    void start() { bot = std::make_unique<ObsBot>(cameraNode); }
    // With the receiver found and open.
    void startWithReceiver() {
        rig.plugReceiver(3);
        start();
        ASSERT_TRUE(rig.waitOpened(1));
    }
    // What was printed since the control table was.
    std::string end() {
        bot.reset();
        const std::string out = testing::internal::GetCapturedStdout();
        const auto begin = out.rfind("zoom_value:");
        return begin == std::string::npos ? out : out.substr(out.find('\n', begin) + 1);
    }
    void press(int key) { rig.press(3, key); }
    void release(int key) { rig.release(3, key); }
    void expectTold(const Told& told) {
        ASSERT_TRUE(rig.settle());
        EXPECT_EQ(rig.told(), told);
    }
    // The key that ends the remote's handling was dealt with.
    bool leftTheRemote() {
        return comesTrue([this] { return rig.openDescriptors() == 0; }, deadline);
    }

    FakeRig rig;
    std::unique_ptr<ObsBot> bot;
};
