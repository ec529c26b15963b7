// A task that does not run, on the fake rig, with a preset file in a folder of its own.
#pragma once

#include "control/camera/obsbot.h"
#include "tests/support/environment.h"
#include "tests/unit/camera/fakerig.h"
#include "tests/unit/task/printed.h"

#include <unistd.h>

class PresetFixture : public testing::Test {
  protected:
    void SetUp() override {
        ObsBot::dormantStatus = 0;
        folder = support::makeTemporaryFolder("presets-");
        rig.presetPath = folder + "/presets";
        rig.noThreads = true;
        printedBy([this] { bot = std::make_unique<ObsBot>(cameraNode); });
    }
    void TearDown() override {
        bot.reset();
        rig.presetPath = folder + "/presets";
        unlink(rig.presetPath.c_str());
        EXPECT_EQ(rmdir(folder.c_str()), 0);
        EXPECT_EQ(rig.openDescriptors(), 0U);
    }
    bool exists() const { return access(rig.presetPath.c_str(), F_OK) == 0; }
    std::string read() const { return support::readFile(rig.presetPath); }
    void write(const std::string& content) const { support::writeFile(rig.presetPath, content); }

    FakeRig rig;
    std::string folder;
    std::unique_ptr<ObsBot> bot;
};
