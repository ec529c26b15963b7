#include "tests/board/display/displayrig.h"

#include <gtest/gtest.h>

#include <poll.h>

#include <cerrno>
#include <cmath>

namespace board::test {
namespace {

std::int64_t time_us(const drm_event_vblank& event) {
    return std::int64_t(event.tv_sec) * 1000000 + event.tv_usec;
}

class Flips : public ::testing::Test {
  protected:
    Rig rig{displayWith({smallMode(640, 480, 100), smallMode(320, 240, 50)})};
    Client client{rig.board};
    Canvas first{client, 640, 480}, second{client, 640, 480};

    void SetUp() override {
        ASSERT_EQ(client.setCrtc(first.framebufferId(), client.modes()[0]), 0);
    }
};

TEST_F(Flips, completeAtVblanksOfTheTrueRefresh) {
    const drm_mode_modeinfo mode = client.modes()[0];
    const double period_us = 1000.0 * mode.htotal * mode.vtotal / mode.clock;
    std::optional<drm_event_vblank> start;
    std::uint32_t lastSequence = 0;
    for (unsigned i = 0; i < 20; ++i) {
        const Canvas& next = i % 2 == 0 ? second : first;
        ASSERT_EQ(client.flip(next.framebufferId(), 1000 + i), 0);
        const std::optional<drm_event_vblank> event = client.event();
        ASSERT_TRUE(event);
        EXPECT_EQ(event->base.type, std::uint32_t(DRM_EVENT_FLIP_COMPLETE));
        EXPECT_EQ(event->base.length, 32u);
        EXPECT_EQ(event->user_data, 1000 + i);
        EXPECT_EQ(event->crtc_id, 31u);
        EXPECT_GT(event->sequence, lastSequence);
        lastSequence = event->sequence;
        if (!start)
            start = event;
        // However late this machine is: the time is that of the counted vertical blank.
        const double expected_us = (event->sequence - start->sequence) * period_us;
        EXPECT_NEAR(double(time_us(*event) - time_us(*start)), expected_us, 2.0);
    }
    EXPECT_EQ(rig.figures().flips, 20u);
}

TEST_F(Flips, neverBeforeTheRequest) {
    for (unsigned i = 0; i < 10; ++i) {
        const std::int64_t before_us = rig.board.clock().now_ns() / 1000;
        ASSERT_EQ(client.flip(second.framebufferId()), 0);
        const auto event = client.event();
        ASSERT_TRUE(event);
        EXPECT_GE(time_us(*event), before_us);
        EXPECT_LE(time_us(*event), rig.board.clock().now_ns() / 1000);
    }
}

TEST_F(Flips, oneAtATime) {
    rig.board.run([&] { rig.display->holdFlips(true); });
    EXPECT_EQ(client.flip(second.framebufferId()), 0);
    EXPECT_EQ(client.flip(first.framebufferId()), -EBUSY);
    rig.board.run([&] { rig.display->holdFlips(false); });
    EXPECT_TRUE(client.event());
    EXPECT_EQ(client.flip(first.framebufferId()), 0);
}

TEST_F(Flips, heldFlipsCompleteWhenReleased) {
    rig.board.run([&] { rig.display->holdFlips(true); });
    ASSERT_EQ(client.flip(second.framebufferId(), 5), 0);
    EXPECT_FALSE(client.event(100));  // ten vertical blanks
    EXPECT_EQ(rig.figures().flips, 0u);
    const std::int64_t released_us = rig.board.clock().now_ns() / 1000;
    rig.board.run([&] { rig.display->holdFlips(false); });
    const auto event = client.event();
    ASSERT_TRUE(event);
    EXPECT_EQ(event->user_data, 5u);
    EXPECT_GE(time_us(*event), released_us);
}

TEST_F(Flips, vblanksGoOnWhileFlipsAreHeld) {
    rig.board.run([&] { rig.display->holdFlips(true); });
    ASSERT_EQ(client.flip(second.framebufferId(), 5), 0);
    for (std::uint32_t i = 1; i <= 3; ++i) {
        drm_wait_vblank notify{};
        notify.request.type =
            drm_vblank_seq_type(std::uint32_t(_DRM_VBLANK_RELATIVE) | _DRM_VBLANK_EVENT);
        notify.request.sequence = i;
        ASSERT_EQ(client.call(DRM_IOCTL_WAIT_VBLANK, notify), 0);
        const auto event = client.event();
        ASSERT_TRUE(event);
        EXPECT_EQ(event->base.type, std::uint32_t(DRM_EVENT_VBLANK));
    }
    EXPECT_EQ(client.flip(first.framebufferId()), -EBUSY);
    EXPECT_EQ(rig.figures().flips, 0u);
}

TEST_F(Flips, goOnAfterTheDisplayIsUnplugged) {
    ASSERT_EQ(client.flip(second.framebufferId()), 0);
    rig.board.run([&] { rig.display->unplug(); });
    EXPECT_TRUE(client.event());
    ASSERT_EQ(client.flip(first.framebufferId()), 0);
    EXPECT_TRUE(client.event());
    EXPECT_NE(client.connector().encoder_id, 0u);  // the CRTC is on
}

TEST_F(Flips, refusals) {
    const Canvas small(client, 320, 240);
    const Canvas rgb(client, 640, 480, DRM_FORMAT_XRGB8888);
    EXPECT_EQ(client.flip(small.framebufferId()), -ENOSPC);
    EXPECT_EQ(client.flip(rgb.framebufferId()), -EINVAL);
    EXPECT_EQ(client.flip(9999), -ENOENT);
    EXPECT_EQ(client.flip(second.framebufferId(), 0, DRM_MODE_PAGE_FLIP_ASYNC), -EINVAL);
    EXPECT_EQ(client.flip(second.framebufferId(), 0, 0x80), -EINVAL);
    EXPECT_EQ(client.crtcOff(), 0);
    EXPECT_EQ(client.flip(second.framebufferId()), -EBUSY);
}

TEST_F(Flips, withoutAnEventCompleteSilently) {
    ASSERT_EQ(client.flip(second.framebufferId(), 0, 0), 0);
    // The next one is accepted once the first is through; its event tells.
    int result = -EBUSY;
    for (unsigned tries = 0; tries < 100000 && result == -EBUSY; ++tries)
        result = client.flip(first.framebufferId(), 2);
    ASSERT_EQ(result, 0);
    const auto event = client.event();
    ASSERT_TRUE(event);
    EXPECT_EQ(event->user_data, 2u);
    EXPECT_EQ(rig.figures().flips, 2u);
}

TEST_F(Flips, eventsOfAClientThatNeverReadsAreBounded) {
    int result = 0;
    unsigned accepted = 0;
    while (accepted < 1000) {
        result = client.flip(second.framebufferId());
        if (result == -EBUSY) {  // wait for the pending one without reading its event
            const std::uint64_t flips = rig.figures().flips;
            if (flips < accepted)
                continue;
        } else if (result != 0) {
            break;
        } else {
            ++accepted;
        }
    }
    EXPECT_EQ(result, -ENOMEM);
    EXPECT_EQ(accepted, 4096u / 32);
    ASSERT_TRUE(client.event());
    EXPECT_EQ(client.flip(first.framebufferId()), 0);  // reading makes room
}

TEST_F(Flips, pendingFlipEndsWithItsPictureOrCrtc) {
    rig.board.run([&] { rig.display->holdFlips(true); });
    ASSERT_EQ(client.flip(second.framebufferId(), 1), 0);
    ASSERT_EQ(client.removeFramebuffer(second.framebufferId()), 0);
    EXPECT_TRUE(client.event());
    EXPECT_EQ(client.crtc().mode_valid, 0u);
    ASSERT_EQ(client.setCrtc(first.framebufferId(), client.modes()[0]), 0);
    ASSERT_EQ(client.flip(first.framebufferId(), 2), 0);
    ASSERT_EQ(client.setCrtc(first.framebufferId(), client.modes()[0]), 0);
    const auto event = client.event();
    ASSERT_TRUE(event);
    EXPECT_EQ(event->user_data, 2u);
}

TEST_F(Flips, clientMayGoWithAFlipPending) {
    auto other = std::make_unique<Client>(rig.board);
    rig.board.run([&] { rig.display->holdFlips(true); });
    ASSERT_EQ(client.flip(second.framebufferId()), 0);
    int nothing = 0;
    ASSERT_EQ(client.call(DRM_IOCTL_DROP_MASTER, nothing), 0);
    ASSERT_EQ(other->call(DRM_IOCTL_SET_MASTER, nothing), 0);
    const Canvas own(*other, 640, 480);
    ASSERT_EQ(other->setCrtc(own.framebufferId(), other->modes()[0]), 0);
    ASSERT_EQ(other->flip(own.framebufferId()), 0);
    other.reset();
    rig.board.run([&] { rig.display->holdFlips(false); });
    EXPECT_EQ(client.crtc().mode_valid, 1u);  // the console's
}

TEST_F(Flips, asleepTheScreenTakesNoFlips) {
    drm_mode_connector_set_property power{};
    power.connector_id = 33;
    power.prop_id = 2;
    power.value = DRM_MODE_DPMS_OFF;
    ASSERT_EQ(client.call(DRM_IOCTL_MODE_SETPROPERTY, power), 0);
    EXPECT_EQ(client.flip(second.framebufferId()), -EINVAL);
    power.value = DRM_MODE_DPMS_ON;
    ASSERT_EQ(client.call(DRM_IOCTL_MODE_SETPROPERTY, power), 0);
    EXPECT_EQ(client.flip(second.framebufferId()), 0);
}

TEST_F(Flips, boardTimeRunsFaster) {
    Rig fast(displayWith({smallMode(640, 480, 50)}), true, 10);
    Client quick(fast.board);
    const Canvas canvas(quick, 640, 480);
    ASSERT_EQ(quick.setCrtc(canvas.framebufferId(), quick.modes()[0]), 0);
    const std::int64_t machineStart = EventLoop::now_ns();
    std::vector<std::int64_t> times;
    for (unsigned i = 0; i < 30; ++i) {
        ASSERT_EQ(quick.flip(canvas.framebufferId()), 0);
        const auto event = quick.event();
        ASSERT_TRUE(event);
        times.push_back(time_us(*event));
    }
    const double machine_us = double(EventLoop::now_ns() - machineStart) / 1000;
    const double board_us = double(times.back() - times.front());
    EXPECT_GE(board_us, 29 * 19990.0);
    EXPECT_GT(board_us, machine_us * 5);
}

TEST_F(Flips, vblankQueriesAndEvents) {
    drm_wait_vblank now{};
    now.request.type = _DRM_VBLANK_RELATIVE;
    ASSERT_EQ(client.call(DRM_IOCTL_WAIT_VBLANK, now), 0);
    drm_wait_vblank notify{};
    notify.request.type =
        drm_vblank_seq_type(std::uint32_t(_DRM_VBLANK_RELATIVE) | _DRM_VBLANK_EVENT);
    notify.request.sequence = 3;
    notify.request.signal = 99;
    ASSERT_EQ(client.call(DRM_IOCTL_WAIT_VBLANK, notify), 0);
    const auto event = client.event();
    ASSERT_TRUE(event);
    EXPECT_EQ(event->base.type, std::uint32_t(DRM_EVENT_VBLANK));
    EXPECT_EQ(event->user_data, 99u);
    EXPECT_EQ(event->sequence, notify.reply.sequence);
    EXPECT_GE(event->sequence, now.reply.sequence + 3);
    // A wait without event is asked for again until its vertical blank has come.
    drm_wait_vblank wait{};
    wait.request.type = _DRM_VBLANK_RELATIVE;
    wait.request.sequence = 2;
    ASSERT_EQ(client.call(DRM_IOCTL_WAIT_VBLANK, wait), -EINTR);
    EXPECT_EQ(std::uint32_t(wait.request.type), 0u);
    const std::uint32_t due = wait.request.sequence;
    int result = -EINTR;
    for (unsigned tries = 0; tries < 1000000 && result == -EINTR; ++tries)
        result = client.call(DRM_IOCTL_WAIT_VBLANK, wait);
    EXPECT_EQ(result, 0);
    EXPECT_GE(wait.reply.sequence, due);
    drm_wait_vblank other{};
    other.request.type = _DRM_VBLANK_SECONDARY;
    EXPECT_EQ(client.call(DRM_IOCTL_WAIT_VBLANK, other), -EINVAL);
}

TEST_F(Flips, countSurvivesAChangeOfMode) {
    ASSERT_EQ(client.flip(second.framebufferId()), 0);
    const auto before = client.event();
    ASSERT_TRUE(before);
    ASSERT_EQ(client.setCrtc(first.framebufferId(), client.modes()[1]), 0);
    ASSERT_EQ(client.flip(second.framebufferId()), 0);
    const auto after = client.event();
    ASSERT_TRUE(after);
    EXPECT_GT(after->sequence, before->sequence);
    EXPECT_GT(time_us(*after), time_us(*before));
}

}  // namespace
}  // namespace board::test
