#include <drm.h>
#include <gtest/gtest.h>
#include <linux/uvcvideo.h>
#include <linux/videodev2.h>

#include <cerrno>

#include "board/daemon/faults.h"
#include "board/daemon/ioctlnames.h"

namespace board {
namespace {

constexpr std::uint32_t dequeue = std::uint32_t(VIDIOC_DQBUF);

TEST(Faults, NthCallFailsAndNoOther) {
    Faults faults;
    ASSERT_TRUE(faults.add("VIDIOC_DQBUF", 3, EIO, 1));
    EXPECT_EQ(faults.check(dequeue), 0);
    EXPECT_EQ(faults.check(std::uint32_t(VIDIOC_QBUF)), 0);
    EXPECT_EQ(faults.check(dequeue), 0);
    EXPECT_EQ(faults.check(dequeue), EIO);
    EXPECT_EQ(faults.check(dequeue), 0);
}

TEST(Faults, CountOfZeroFailsForEver) {
    Faults faults;
    ASSERT_TRUE(faults.add("VIDIOC_DQBUF", 2, ENODEV, 0));
    EXPECT_EQ(faults.check(dequeue), 0);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(faults.check(dequeue), ENODEV);
    faults.clear();
    EXPECT_EQ(faults.check(dequeue), 0);
}

TEST(Faults, RulesCountEachForItself) {
    Faults faults;
    ASSERT_TRUE(faults.add("VIDIOC_DQBUF", 1, EIO, 2));
    ASSERT_TRUE(faults.add("VIDIOC_DQBUF", 2, EBUSY, 2));
    EXPECT_EQ(faults.check(dequeue), EIO);
    EXPECT_EQ(faults.check(dequeue), EIO);
    EXPECT_EQ(faults.check(dequeue), EBUSY);
    EXPECT_EQ(faults.check(dequeue), 0);
}

TEST(Faults, RefusesWhatIsNoRule) {
    Faults faults;
    EXPECT_FALSE(faults.add("VIDIOC_NOTHING", 1, EIO, 1));
    EXPECT_FALSE(faults.add("VIDIOC_DQBUF", 0, EIO, 1));
    EXPECT_FALSE(faults.add("VIDIOC_DQBUF", 1, 0, 1));
    EXPECT_EQ(faults.check(dequeue), 0);
}

TEST(IoctlNames, NumbersOfAllFamilies) {
    EXPECT_EQ(ioctlNumber("VIDIOC_DQBUF"), dequeue);
    EXPECT_EQ(ioctlNumber("UVCIOC_CTRL_QUERY"), std::uint32_t(UVCIOC_CTRL_QUERY));
    EXPECT_EQ(ioctlNumber("DRM_IOCTL_MODE_PAGE_FLIP"), std::uint32_t(DRM_IOCTL_MODE_PAGE_FLIP));
    EXPECT_EQ(ioctlNumber("vidioc_dqbuf"), 0u);
    EXPECT_EQ(ioctlName(dequeue), "VIDIOC_DQBUF");
    EXPECT_EQ(ioctlName(0), "");
}

}  // namespace
}  // namespace board
