// Which picture each completed flip is followed by, and that the cycle never stops.
#include "control/display/showcontrol.h"

#include "tests/unit/display/displayaccess.h"
#include "tests/unit/display/fakedrm.h"
#include "tests/unit/task/printed.h"
#include "tests/unit/task/waiting.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <memory>

namespace {

using Access = DisplayDrmTestAccess;

class FlipCycle : public testing::Test {
  protected:
    void SetUp() override {
        card.reset();
        card.plugDisplay({FakeDrm::mode(64, 48, 60)});
        printedBy([this] { display.init_drm_display(); });
        blank = Access::blank(display).fb_id;
        shownBefore = card.flips().size();
    }
    void put(double pts) {
        unsigned char* buffer = nullptr;
        display.enQueue(&buffer, 64, 48, pts, 10);
        display.enQueueEnd();
    }
    // Completes the outstanding flip; what the display task prints meanwhile.
    std::string flip() {
        EXPECT_TRUE(card.completeFlip());
        return printedBy([this] { display.updateImage(); });
    }
    std::uint32_t fb(int slot) { return Access::slot(display, slot).fb_id; }
    // The framebuffers since the set-up.
    std::vector<std::uint32_t> shown() {
        const auto all = card.flips();
        return {all.begin() + static_cast<std::ptrdiff_t>(shownBefore), all.end()};
    }

    FakeDrm& card = FakeDrm::instance();
    DisplayDrm display{decInfo{0, 64, 48, 60}};
    std::uint32_t blank = 0;
    std::size_t shownBefore = 0;
};

using Framebuffers = std::vector<std::uint32_t>;

}  // namespace

TEST_F(FlipCycle, EachCompletedFlipShowsTheNextFrame) {
    for (int i = 0; i < 3; ++i) {
        put(100.0 * (i + 1));
    }
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(flip(), "");
        EXPECT_EQ(Access::readyCount(display), 2 - i) << "given back as soon as it is queued";
    }
    EXPECT_EQ(shown(), (Framebuffers{fb(0), fb(1), fb(2)}));
    EXPECT_EQ(card.flipUserData, Access::crtcId(display));
    EXPECT_EQ(card.flipFlags, static_cast<std::uint32_t>(DRM_MODE_PAGE_FLIP_EVENT));
    EXPECT_EQ(display.takeFlipCount(), 3);
    EXPECT_EQ(display.takeFlipCount(), 0);
}

TEST_F(FlipCycle, NoFrameShowsTheBlankBufferAndTheCycleGoesOn) {
    Access::setDequeueWait(display, 2);
    EXPECT_EQ(flip(), "show control getq timeout\n");
    EXPECT_EQ(flip(), "show control getq timeout\n");
    put(-1.0);
    EXPECT_EQ(flip(), "");
    EXPECT_EQ(shown(), (Framebuffers{blank, blank, fb(0)}));
    EXPECT_EQ(display.takeFlipCount(), 1) << "the blank buffer is no frame";
}

TEST_F(FlipCycle, OfFramesFiveApartEverySecondIsShown) {
    for (int i = 0; i < 8; ++i) {
        put(100.0 + 5.0 * i);
    }
    for (int i = 0; i < 4; ++i) {
        flip();
    }
    EXPECT_EQ(shown(), (Framebuffers{fb(0), fb(2), fb(4), fb(6)}));
}

TEST_F(FlipCycle, FramesTenApartAreAllShown) {
    for (int i = 0; i < 4; ++i) {
        put(100.0 + 10.0 * i);
    }
    for (int i = 0; i < 4; ++i) {
        flip();
    }
    EXPECT_EQ(shown(), (Framebuffers{fb(0), fb(1), fb(2), fb(3)}));
    EXPECT_EQ(Access::lastShownPts(display), 130.0);
}

TEST_F(FlipCycle, AnOlderTimeStampIsSkipped) {
    Access::setDequeueWait(display, 2);
    put(100.0);
    flip();
    put(50.0);
    EXPECT_EQ(flip(), "show control getq timeout\n");
    EXPECT_EQ(shown(), (Framebuffers{fb(0), blank}));
    EXPECT_EQ(Access::readyCount(display), 0);
}

TEST_F(FlipCycle, AFrameWithoutATimeStampIsAlwaysShown) {
    put(100.0);
    put(-1.0);
    put(-1.0);
    put(105.0);
    put(110.0);
    for (int i = 0; i < 4; ++i) {
        flip();
    }
    EXPECT_EQ(shown(), (Framebuffers{fb(0), fb(1), fb(2), fb(4)}));
    EXPECT_EQ(Access::lastShownPts(display), 110.0);
}

TEST_F(FlipCycle, ARefusedFlipIsQueuedAgainToTheBlankBuffer) {
    put(-1.0);
    put(-1.0);
    card.fails = [](const std::string& step, int nth) { return step == "flip" && nth <= 4; };
    testing::internal::CaptureStderr();
    flip();  // the set-up's flip was the first, so this one and two more are refused
    for (int i = 0; i < 2; ++i) {
        const auto start = Clock::now();
        display.updateImage();
        EXPECT_GE(millisecondsSince(start), 9.5) << "an error must not make the task spin";
    }
    EXPECT_EQ(shown(), Framebuffers{});
    EXPECT_EQ(display.takeFlipCount(), 0);
    display.updateImage();
    EXPECT_EQ(shown(), Framebuffers{blank});
    flip();
    EXPECT_EQ(shown(), (Framebuffers{blank, fb(1)}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "display: cannot queue a page flip, which is tried again: 22, Invalid argument\n");
}

TEST_F(FlipCycle, AFlipThatDoesNotCompleteIsWaitedForInSlices) {
    const auto start = Clock::now();
    display.updateImage();
    const double waited = millisecondsSince(start);
    EXPECT_GE(waited, 45.0);
    EXPECT_LT(waited, 1000.0);
    EXPECT_EQ(shown(), Framebuffers{});
}

TEST_F(FlipCycle, AFlipWhoseEventIsLostIsMadeUpFor) {
    card.loseFlip();
    const auto start = Clock::now();
    while (shown().empty() && millisecondsSince(start) < 10000.0) {
        display.updateImage();
    }
    EXPECT_EQ(shown(), Framebuffers{blank});
}

TEST_F(FlipCycle, AFlipThatIsStillOnItsWayIsOnlyAskedAbout) {
    put(-1.0);
    testing::internal::CaptureStderr();
    const int asked = card.calls("flip");
    const auto start = Clock::now();
    while (card.calls("flip") == asked && millisecondsSince(start) < 10000.0) {
        display.updateImage();
    }
    EXPECT_EQ(card.calls("flip"), asked + 1);
    EXPECT_EQ(shown(), Framebuffers{});
    flip();
    EXPECT_EQ(shown(), Framebuffers{fb(0)});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// A flip that was given up completes after all, while the one in its place is on its way.
TEST_F(FlipCycle, AnEventTooManyCostsOneFrame) {
    for (int i = 0; i < 4; ++i) {
        put(-1.0);
    }
    testing::internal::CaptureStderr();
    modeset_page_flip_handler(-1, 0, 0, 0, nullptr);
    const int asked = card.calls("flip");
    display.updateImage();
    EXPECT_EQ(card.calls("flip"), asked) << "the one on its way is waited for";
    for (int i = 0; i < 3; ++i) {
        flip();
    }
    EXPECT_EQ(shown(), (Framebuffers{fb(1), fb(2), fb(3)})) << "nothing black in between";
    EXPECT_EQ(display.takeFlipCount(), 3);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "display: cannot queue a page flip, which is tried again: 16, Device or resource "
              "busy\n");
}

TEST_F(FlipCycle, ABusyCardWithoutAFlipIsAskedAgainSoon) {
    testing::internal::CaptureStderr();
    double soonest = 10000.0;
    for (int attempt = 0; attempt < 5 && soonest >= 900.0; ++attempt) {
        put(-1.0);
        modeset_page_flip_handler(-1, 0, 0, 0, nullptr);
        card.loseFlip();
        const auto start = Clock::now();
        const std::size_t before = shown().size();
        while (shown().size() == before && millisecondsSince(start) < 10000.0) {
            display.updateImage();
        }
        EXPECT_EQ(shown(), Framebuffers(before + 1, blank));
        soonest = std::min(soonest, millisecondsSince(start));
        EXPECT_GE(soonest, 42.0) << "a flip that is on its way gets its time";
    }
    EXPECT_LT(soonest, 900.0) << "a second would be seen";
    testing::internal::GetCapturedStderr();
}

TEST_F(FlipCycle, AnEventThatCannotBeReadDoesNotSpin) {
    card.fails = [](const std::string& step, int) { return step == "event"; };
    EXPECT_TRUE(card.completeFlip());
    const auto start = Clock::now();
    display.updateImage();
    EXPECT_GE(millisecondsSince(start), 9.5);
}

TEST(PageFlipHandler, DoesNothingWithoutADisplay) {
    ASSERT_EQ(DisplayDrm::getDrmDev(), nullptr);
    modeset_page_flip_handler(-1, 0, 0, 0, nullptr);
}

namespace {

class ShowControlTask : public testing::Test {
  protected:
    void SetUp() override {
        card.reset();
        card.plugDisplay({FakeDrm::mode(64, 48, 60)});
    }
    void TearDown() override {
        std::string what;
        EXPECT_TRUE(card.allGivenBack(what)) << what;
        EXPECT_EQ(DisplayDrm::getDrmDev(), nullptr);
    }
    // Closes and destroys; how long that took, in ms.
    static double timeToStop(std::unique_ptr<ShowControl>& task) {
        const auto start = Clock::now();
        EXPECT_EQ(task->close(), 0);
        task.reset();
        return millisecondsSince(start);
    }
    FakeDrm& card = FakeDrm::instance();
    const decInfo mode{0, 64, 48, 60};
};

}  // namespace

TEST_F(ShowControlTask, ShowsFramesUntilItIsClosed) {
    card.completesAtOnce = true;
    const std::string out = printedBy([this] {
        auto task = std::make_unique<ShowControl>(mode);
        EXPECT_EQ(task->isConnected(), 1);
        card.setConnected(false);
        EXPECT_EQ(task->isConnected(), 0);
        task->activate(1);
        DisplayDrm* display = DisplayDrm::getDrmDev();
        for (int i = 0; i < 20; ++i) {
            unsigned char* buffer = nullptr;
            display->enQueue(&buffer, 64, 48, -1.0, 10);
            display->enQueueEnd();
        }
        EXPECT_TRUE(comesTrue([this] { return card.flips().size() >= 21; }));
        EXPECT_LT(timeToStop(task), 2000.0);
    });
    EXPECT_EQ(card.flips()[1], card.flips()[0] - 36) << "the first slot after the blank buffer";
    const std::string end = "ShowControlsvc normal stop!\n";
    ASSERT_GE(out.size(), end.size());
    EXPECT_EQ(out.substr(out.size() - end.size()), end);
}

TEST_F(ShowControlTask, StopsWhileItWaitsForAFrame) {
    card.completesAtOnce = true;
    printedBy([this] {
        auto task = std::make_unique<ShowControl>(mode);
        task->activate(1);
        ASSERT_TRUE(comesTrue([this] { return card.calls("event") >= 1; }));
        EXPECT_LT(timeToStop(task), 2000.0);
    });
}

TEST_F(ShowControlTask, StopsWithAFlipThatNeverCompletes) {
    printedBy([this] {
        auto task = std::make_unique<ShowControl>(mode);
        task->activate(1);
        ASSERT_TRUE(comesTrue([this] { return card.calls("flip") == 1; }));
        EXPECT_LT(timeToStop(task), 2000.0);
    });
}

TEST_F(ShowControlTask, WithoutADisplayItRunsAndStops) {
    card.present = false;
    testing::internal::CaptureStderr();
    printedBy([this] {
        auto task = std::make_unique<ShowControl>(mode);
        EXPECT_EQ(task->isConnected(), 0);
        task->activate(1);
        EXPECT_LT(timeToStop(task), 2000.0);
    });
    testing::internal::GetCapturedStderr();
}

TEST_F(ShowControlTask, ClosingEmptiesTheRing) {
    printedBy([this] {
        ShowControl task(mode);
        DisplayDrm* display = DisplayDrm::getDrmDev();
        unsigned char* buffer = nullptr;
        display->enQueue(&buffer, 64, 48, -1.0, 10);
        display->enQueueEnd();
        task.close();
        EXPECT_EQ(Access::readyCount(*display), 0);
        EXPECT_EQ(Access::writeIndex(*display), 0);
    });
}
