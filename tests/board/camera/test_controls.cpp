// Controls, extended controls, control events.
#include "tests/board/camera/camerabench.h"

#include <fcntl.h>
#include <poll.h>

#include <cerrno>
#include <cstring>

namespace board::test {
namespace {

class Controls : public CameraBench {
  protected:
    Controls() { plug(); }

    int set(Client& client, std::uint32_t id, std::int32_t value) {
        v4l2_control control{id, value};
        const int result = client(VIDIOC_S_CTRL, control);
        lastValue = control.value;
        return result;
    }
    std::int32_t get(Client& client, std::uint32_t id) {
        v4l2_control control{id, -12345};
        EXPECT_EQ(client(VIDIOC_G_CTRL, control), 0);
        return control.value;
    }
    std::uint32_t flags(Client& client, std::uint32_t id) {
        v4l2_queryctrl query{};
        query.id = id;
        EXPECT_EQ(client(VIDIOC_QUERYCTRL, query), 0);
        return query.flags;
    }
    void subscribe(Client& client, std::uint32_t id, std::uint32_t flags = 0) {
        v4l2_event_subscription subscription{};
        subscription.type = V4L2_EVENT_CTRL;
        subscription.id = id;
        subscription.flags = flags;
        EXPECT_EQ(client(VIDIOC_SUBSCRIBE_EVENT, subscription), 0);
    }

    std::int32_t lastValue = 0;
};

v4l2_ext_control item(std::uint32_t id, std::int32_t value = 0) {
    v4l2_ext_control made{};
    made.id = id;
    made.value = value;
    return made;
}

TEST_F(Controls, NextWalksAllInOrderWithTheirClasses) {
    Client client = open();
    const std::vector<std::uint32_t> expected = {
        V4L2_CID_USER_CLASS,    V4L2_CID_BRIGHTNESS,    V4L2_CID_BACKLIGHT_COMPENSATION,
        V4L2_CID_CAMERA_CLASS,  V4L2_CID_EXPOSURE_AUTO, V4L2_CID_EXPOSURE_ABSOLUTE,
        V4L2_CID_ZOOM_ABSOLUTE, V4L2_CID_PRIVACY,       V4L2_CID_PAN_SPEED};
    std::vector<std::uint32_t> plain, extended;
    v4l2_queryctrl query{};
    query.id = V4L2_CTRL_FLAG_NEXT_CTRL;
    while (client(VIDIOC_QUERYCTRL, query) == 0) {
        plain.push_back(query.id);
        query.id |= V4L2_CTRL_FLAG_NEXT_CTRL;
    }
    v4l2_query_ext_ctrl wide{};
    wide.id = V4L2_CTRL_FLAG_NEXT_CTRL | V4L2_CTRL_FLAG_NEXT_COMPOUND;
    while (client(VIDIOC_QUERY_EXT_CTRL, wide) == 0) {
        extended.push_back(wide.id);
        wide.id |= V4L2_CTRL_FLAG_NEXT_CTRL | V4L2_CTRL_FLAG_NEXT_COMPOUND;
    }
    EXPECT_EQ(plain, expected);
    EXPECT_EQ(extended, expected);
    wide.id = V4L2_CTRL_FLAG_NEXT_COMPOUND;
    EXPECT_EQ(client(VIDIOC_QUERY_EXT_CTRL, wide), -EINVAL);
    query.id = V4L2_CID_HUE;
    EXPECT_EQ(client(VIDIOC_QUERYCTRL, query), -EINVAL);
}

TEST_F(Controls, ClassHeadingsHaveNoValue) {
    Client client = open();
    v4l2_queryctrl query{};
    query.id = V4L2_CID_USER_CLASS;
    ASSERT_EQ(client(VIDIOC_QUERYCTRL, query), 0);
    EXPECT_STREQ(reinterpret_cast<char*>(query.name), "User Controls");
    EXPECT_EQ(query.type, std::uint32_t(V4L2_CTRL_TYPE_CTRL_CLASS));
    EXPECT_EQ(query.flags, std::uint32_t(V4L2_CTRL_FLAG_READ_ONLY | V4L2_CTRL_FLAG_WRITE_ONLY));
    v4l2_control control{V4L2_CID_USER_CLASS, 0};
    EXPECT_EQ(client(VIDIOC_G_CTRL, control), -EACCES);
    EXPECT_EQ(client(VIDIOC_S_CTRL, control), -EACCES);
}

TEST_F(Controls, MenuHasOnlyItsEntries) {
    Client client = open();
    v4l2_querymenu entry{};
    entry.id = V4L2_CID_EXPOSURE_AUTO;
    entry.index = 1;
    ASSERT_EQ(client(VIDIOC_QUERYMENU, entry), 0);
    EXPECT_STREQ(reinterpret_cast<char*>(entry.name), "Manual Mode");
    entry.index = 0;
    EXPECT_EQ(client(VIDIOC_QUERYMENU, entry), -EINVAL);
    entry.index = 4;
    EXPECT_EQ(client(VIDIOC_QUERYMENU, entry), -EINVAL);
    entry.id = V4L2_CID_BRIGHTNESS;
    EXPECT_EQ(client(VIDIOC_QUERYMENU, entry), -EINVAL);
}

TEST_F(Controls, ValuesAreKeptClampedAndRounded) {
    Client client = open(), other = open();
    EXPECT_EQ(set(client, V4L2_CID_BRIGHTNESS, 12), 0);
    EXPECT_EQ(get(other, V4L2_CID_BRIGHTNESS), 12);
    EXPECT_EQ(set(client, V4L2_CID_BRIGHTNESS, -1000), 0);
    EXPECT_EQ(lastValue, -64);
    EXPECT_EQ(set(client, V4L2_CID_ZOOM_ABSOLUTE, 0x7fffffff), 0);
    EXPECT_EQ(get(client, V4L2_CID_ZOOM_ABSOLUTE), 500);
    EXPECT_EQ(set(client, V4L2_CID_ZOOM_ABSOLUTE, 126), 0);
    EXPECT_EQ(lastValue, 130);
    EXPECT_EQ(set(client, V4L2_CID_BACKLIGHT_COMPENSATION, 9), 0);
    EXPECT_EQ(lastValue, 1);
    EXPECT_EQ(set(client, V4L2_CID_EXPOSURE_AUTO, 4), -ERANGE);
    EXPECT_EQ(set(client, V4L2_CID_EXPOSURE_AUTO, 2), -EINVAL);
    EXPECT_EQ(get(client, V4L2_CID_EXPOSURE_AUTO), 3);
    EXPECT_EQ(set(client, V4L2_CID_HUE, 0), -EINVAL);
    EXPECT_EQ(set(client, V4L2_CID_PRIVACY, 0), -EACCES);
    v4l2_control panSpeed{V4L2_CID_PAN_SPEED, 5};
    EXPECT_EQ(client(VIDIOC_G_CTRL, panSpeed), -EACCES);
    EXPECT_EQ(client(VIDIOC_S_CTRL, panSpeed), 0);
}

TEST_F(Controls, AutomaticModeMakesItsControlInactive) {
    Client client = open();
    EXPECT_TRUE(flags(client, V4L2_CID_EXPOSURE_ABSOLUTE) & V4L2_CTRL_FLAG_INACTIVE);
    EXPECT_EQ(set(client, V4L2_CID_EXPOSURE_ABSOLUTE, 100), -EACCES);
    ASSERT_EQ(set(client, V4L2_CID_EXPOSURE_AUTO, 1), 0);
    EXPECT_FALSE(flags(client, V4L2_CID_EXPOSURE_ABSOLUTE) & V4L2_CTRL_FLAG_INACTIVE);
    EXPECT_EQ(set(client, V4L2_CID_EXPOSURE_ABSOLUTE, 100), 0);
    v4l2_ext_controls header{};
    std::vector<v4l2_ext_control> items = {item(V4L2_CID_EXPOSURE_AUTO, 3),
                                           item(V4L2_CID_EXPOSURE_ABSOLUTE, 200)};
    EXPECT_EQ(client.extended(VIDIOC_S_EXT_CTRLS, header, items), -EACCES);
    EXPECT_EQ(get(client, V4L2_CID_EXPOSURE_AUTO), 1);
}

TEST_F(Controls, ExtendedCallsChangeAllOrNothing) {
    Client client = open();
    v4l2_ext_controls header{};
    std::vector<v4l2_ext_control> items = {item(V4L2_CID_BRIGHTNESS, 5),
                                           item(V4L2_CID_ZOOM_ABSOLUTE, 1000)};
    ASSERT_EQ(client.extended(VIDIOC_TRY_EXT_CTRLS, header, items), 0);
    EXPECT_EQ(items[1].value, 500);
    EXPECT_EQ(get(client, V4L2_CID_BRIGHTNESS), 0);
    ASSERT_EQ(client.extended(VIDIOC_S_EXT_CTRLS, header, items), 0);
    EXPECT_EQ(header.error_idx, 0u);
    items[0].value = items[1].value = 0;
    ASSERT_EQ(client.extended(VIDIOC_G_EXT_CTRLS, header, items), 0);
    EXPECT_EQ(items[0].value, 5);
    EXPECT_EQ(items[1].value, 500);
    items = {item(V4L2_CID_BRIGHTNESS, 9), item(V4L2_CID_EXPOSURE_AUTO, 77)};
    EXPECT_EQ(client.extended(VIDIOC_S_EXT_CTRLS, header, items), -ERANGE);
    EXPECT_EQ(get(client, V4L2_CID_BRIGHTNESS), 5);
}

TEST_F(Controls, ErrorIndexNamesTheCulpritOnlyWhereNothingWasTouched) {
    Client client = open();
    v4l2_ext_controls header{};
    std::vector<v4l2_ext_control> items = {item(V4L2_CID_BRIGHTNESS), item(V4L2_CID_HUE)};
    EXPECT_EQ(client.extended(VIDIOC_TRY_EXT_CTRLS, header, items), -EINVAL);
    EXPECT_EQ(header.error_idx, 1u);
    EXPECT_EQ(client.extended(VIDIOC_S_EXT_CTRLS, header, items), -EINVAL);
    EXPECT_EQ(header.error_idx, 2u);
    EXPECT_EQ(client.extended(VIDIOC_G_EXT_CTRLS, header, items), -EINVAL);
    EXPECT_EQ(header.error_idx, 2u);
    items = {item(V4L2_CID_BRIGHTNESS), item(V4L2_CID_ZOOM_ABSOLUTE)};
    header.which = V4L2_CTRL_CLASS_USER;
    EXPECT_EQ(client.extended(VIDIOC_TRY_EXT_CTRLS, header, items), -EINVAL);
    EXPECT_EQ(header.error_idx, 1u);
    items.clear();
    header = {};
    EXPECT_EQ(client.extended(VIDIOC_G_EXT_CTRLS, header, items), 0);
}

TEST_F(Controls, DefaultsCanBeReadOnly) {
    Client client = open();
    ASSERT_EQ(set(client, V4L2_CID_BRIGHTNESS, 33), 0);
    v4l2_ext_controls header{};
    header.which = V4L2_CTRL_WHICH_DEF_VAL;
    std::vector<v4l2_ext_control> items = {item(V4L2_CID_BRIGHTNESS, 7)};
    ASSERT_EQ(client.extended(VIDIOC_G_EXT_CTRLS, header, items), 0);
    EXPECT_EQ(items[0].value, 0);
    EXPECT_EQ(client.extended(VIDIOC_S_EXT_CTRLS, header, items), -EINVAL);
    EXPECT_EQ(client.extended(VIDIOC_TRY_EXT_CTRLS, header, items), -EINVAL);
    header.which = V4L2_CTRL_WHICH_REQUEST_VAL;
    EXPECT_EQ(client.extended(VIDIOC_G_EXT_CTRLS, header, items), -EINVAL);
}

TEST_F(Controls, CountThatDoesNotMatchTheItemsIsRefused) {
    Client client = open();
    v4l2_ext_controls header{};
    header.count = 1000;
    EXPECT_EQ(client(VIDIOC_S_EXT_CTRLS, header), -EINVAL);
}

TEST_F(Controls, AChangeReachesTheOtherDescriptor) {
    Client client = open(), other = open();
    subscribe(client, V4L2_CID_BRIGHTNESS);
    subscribe(other, V4L2_CID_BRIGHTNESS);
    ASSERT_EQ(set(client, V4L2_CID_BRIGHTNESS, 3), 0);
    EXPECT_EQ(client.polledEvents(), 0) << "one's own change does not come back";
    EXPECT_TRUE(other.polledEvents() & POLLIN);
    ASSERT_EQ(set(client, V4L2_CID_BRIGHTNESS, 4), 0);
    v4l2_event event{};
    ASSERT_EQ(other(VIDIOC_DQEVENT, event), 0);
    EXPECT_EQ(event.type, std::uint32_t(V4L2_EVENT_CTRL));
    EXPECT_EQ(event.id, V4L2_CID_BRIGHTNESS);
    EXPECT_EQ(event.u.ctrl.value, 4) << "the later change replaces the waiting one";
    EXPECT_EQ(event.u.ctrl.maximum, 64);
    EXPECT_EQ(event.pending, 0u);
    EXPECT_EQ(other.polledEvents(), 0);
    EXPECT_EQ(other(VIDIOC_DQEVENT, event), -EAGAIN);
    other.fileFlags = O_NONBLOCK;
    EXPECT_EQ(other(VIDIOC_DQEVENT, event), -ENOENT);
}

TEST_F(Controls, FeedbackInitialStateAndRuledControls) {
    Client client = open();
    subscribe(client, V4L2_CID_BRIGHTNESS, V4L2_EVENT_SUB_FL_ALLOW_FEEDBACK);
    subscribe(client, V4L2_CID_EXPOSURE_ABSOLUTE, V4L2_EVENT_SUB_FL_SEND_INITIAL);
    subscribe(client, V4L2_CID_CAMERA_CLASS, V4L2_EVENT_SUB_FL_SEND_INITIAL);
    v4l2_event event{};
    ASSERT_EQ(client(VIDIOC_DQEVENT, event), 0);
    EXPECT_EQ(event.id, V4L2_CID_EXPOSURE_ABSOLUTE);
    EXPECT_TRUE(event.u.ctrl.flags & V4L2_CTRL_FLAG_INACTIVE);
    EXPECT_EQ(client(VIDIOC_DQEVENT, event), -EAGAIN) << "a class has no initial state";
    ASSERT_EQ(set(client, V4L2_CID_BRIGHTNESS, 3), 0);
    ASSERT_EQ(set(client, V4L2_CID_EXPOSURE_AUTO, 1), 0);
    ASSERT_EQ(client(VIDIOC_DQEVENT, event), 0);
    EXPECT_EQ(event.id, V4L2_CID_BRIGHTNESS);
    EXPECT_EQ(event.pending, 1u);
    ASSERT_EQ(client(VIDIOC_DQEVENT, event), 0);
    EXPECT_EQ(event.id, V4L2_CID_EXPOSURE_ABSOLUTE);
    EXPECT_TRUE(event.u.ctrl.changes & V4L2_EVENT_CTRL_CH_FLAGS);
    EXPECT_FALSE(event.u.ctrl.flags & V4L2_CTRL_FLAG_INACTIVE);
}

TEST_F(Controls, UnsubscribingForgetsWhatWaits) {
    Client client = open(), other = open();
    subscribe(client, V4L2_CID_BRIGHTNESS);
    subscribe(client, V4L2_CID_ZOOM_ABSOLUTE);
    ASSERT_EQ(set(other, V4L2_CID_BRIGHTNESS, 3), 0);
    ASSERT_EQ(set(other, V4L2_CID_ZOOM_ABSOLUTE, 200), 0);
    v4l2_event_subscription subscription{};
    subscription.type = V4L2_EVENT_CTRL;
    subscription.id = V4L2_CID_BRIGHTNESS;
    EXPECT_EQ(client(VIDIOC_UNSUBSCRIBE_EVENT, subscription), 0);
    EXPECT_TRUE(client.polledEvents() & POLLIN);
    subscription.type = V4L2_EVENT_ALL;
    EXPECT_EQ(client(VIDIOC_UNSUBSCRIBE_EVENT, subscription), 0);
    EXPECT_EQ(client.polledEvents(), 0);
    subscription.type = V4L2_EVENT_EOS;
    EXPECT_EQ(client(VIDIOC_SUBSCRIBE_EVENT, subscription), -EINVAL);
    subscription.type = V4L2_EVENT_CTRL;
    subscription.id = V4L2_CID_HUE;
    EXPECT_EQ(client(VIDIOC_SUBSCRIBE_EVENT, subscription), -EINVAL);
}

}  // namespace
}  // namespace board::test
