// Arguments that no sane program sends.
#include "tests/board/camera/camerabench.h"

#include <cerrno>
#include <random>

namespace board::test {
namespace {

constexpr std::uint64_t requests[] = {
    VIDIOC_QUERYCAP,    VIDIOC_ENUM_FMT,      VIDIOC_ENUM_FRAMESIZES, VIDIOC_ENUM_FRAMEINTERVALS,
    VIDIOC_G_FMT,       VIDIOC_S_FMT,         VIDIOC_TRY_FMT,         VIDIOC_G_PARM,
    VIDIOC_S_PARM,      VIDIOC_ENUMINPUT,     VIDIOC_G_INPUT,         VIDIOC_S_INPUT,
    VIDIOC_G_PRIORITY,  VIDIOC_S_PRIORITY,    VIDIOC_QUERYCTRL,       VIDIOC_QUERY_EXT_CTRL,
    VIDIOC_QUERYMENU,   VIDIOC_G_CTRL,        VIDIOC_S_CTRL,          VIDIOC_G_EXT_CTRLS,
    VIDIOC_S_EXT_CTRLS, VIDIOC_TRY_EXT_CTRLS, VIDIOC_SUBSCRIBE_EVENT, VIDIOC_UNSUBSCRIBE_EVENT,
    VIDIOC_DQEVENT,     VIDIOC_REQBUFS,       VIDIOC_QUERYBUF,        VIDIOC_QBUF,
    VIDIOC_DQBUF,       VIDIOC_STREAMON,      VIDIOC_STREAMOFF};

class Hostile : public CameraBench {
  protected:
    Hostile() { plug(); }

    // Words as a careless or malicious caller fills them: small, huge, almost right.
    std::uint32_t word() {
        static const std::uint32_t likely[] = {0,
                                               1,
                                               2,
                                               3,
                                               32,
                                               0x7fffffff,
                                               0x80000000,
                                               0xffffffff,
                                               V4L2_PIX_FMT_YUYV,
                                               64,
                                               48,
                                               V4L2_CID_BRIGHTNESS,
                                               V4L2_CID_EXPOSURE_AUTO,
                                               V4L2_CTRL_FLAG_NEXT_CTRL,
                                               V4L2_CTRL_CLASS_CAMERA,
                                               V4L2_CTRL_WHICH_DEF_VAL};
        return random() % 4 == 0 ? std::uint32_t(random()) : likely[random() % std::size(likely)];
    }

    IoctlCall anyCall() {
        IoctlCall call;
        call.request = std::uint32_t(requests[random() % std::size(requests)]);
        call.fileFlags = word();
        call.argument.resize(_IOC_SIZE(call.request));
        for (std::size_t i = 0; i + 4 <= call.argument.size(); i += 4) {
            const std::uint32_t value = word();
            std::memcpy(call.argument.data() + i, &value, 4);
        }
        if (random() % 2 == 0) {
            NestedBlock block;
            std::vector<v4l2_ext_control> items(random() % 4);
            for (auto& item : items) {
                item.id = word();
                item.value = std::int32_t(word());
            }
            v4l2_ext_controls header = call.load<v4l2_ext_controls>();
            header.count = std::uint32_t(items.size());
            if (_IOC_SIZE(call.request) == sizeof header)
                call.store(header);
            block.replyWith(items);
            block.sent = std::move(block.reply);
            block.reply.clear();
            block.capacity = std::uint32_t(block.sent.size());
            call.blocks.push_back(block);
        }
        return call;
    }

    std::mt19937 random{20240117};
};

TEST_F(Hostile, AnyArgumentGetsAnAnswerAndTheCameraLivesOn) {
    int answers = 0, successes = 0;
    for (int round = 0; round < 40; ++round) {
        Client client = open(), other = open();
        if (round % 2 == 0)
            prepare(client, 3);
        if (round % 4 == 0) {
            ASSERT_EQ(client.stream(true), 0);
        }
        for (int i = 0; i < 500; ++i) {
            IoctlCall call = anyCall();
            const std::size_t bytes = call.argument.size();
            const int result = (random() % 4 == 0 ? other : client).run(call);
            ASSERT_LE(result, 0);
            ASSERT_GT(result, -200);
            ASSERT_EQ(call.argument.size(), bytes);
            for (const NestedBlock& block : call.blocks)
                ASSERT_LE(block.reply.size(), block.capacity);
            ++answers;
            successes += result == 0 ? 1 : 0;
            client.map(word(), word(), word());
            client.unmapped(word(), word());
        }
    }
    EXPECT_EQ(answers, 40 * 500);
    EXPECT_GT(successes, answers / 20) << "arguments that are always refused test nothing";
    Client client = open();
    prepare(client, 2);
    ASSERT_EQ(client.stream(true), 0);
    EXPECT_EQ(take(client).sequence, 0u);
}

}  // namespace
}  // namespace board::test
