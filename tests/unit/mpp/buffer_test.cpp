// Buffers and their groups.
#include <rockchip/rk_mpi.h>

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <thread>
#include <vector>

namespace {

class MppBuffers : public testing::Test {
  protected:
    void SetUp() override {
        before_ = mpp_buffer_total_now();
        ASSERT_EQ(mpp_buffer_group_get_internal(&group, MPP_BUFFER_TYPE_ION), MPP_OK);
    }
    void TearDown() override {
        if (group != nullptr) {
            EXPECT_EQ(mpp_buffer_group_put(group), MPP_OK);
        }
        EXPECT_EQ(mpp_buffer_total_now(), before_) << "buffers are left over";
    }
    MppBuffer take(size_t size) {
        MppBuffer buffer = nullptr;
        EXPECT_EQ(mpp_buffer_get(group, &buffer, size), MPP_OK);
        return buffer;
    }

    MppBufferGroup group = nullptr;

  private:
    RK_U32 before_ = 0;
};

}  // namespace

TEST_F(MppBuffers, HaveTheirSizeAndClearMemory) {
    MppBuffer buffer = take(12345);
    EXPECT_EQ(mpp_buffer_get_size(buffer), 12345U);
    auto* memory = static_cast<unsigned char*>(mpp_buffer_get_ptr(buffer));
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % 4096, 0U);
    for (int i = 0; i < 12345; ++i) {
        ASSERT_EQ(memory[i], 0);
    }
    memory[12344] = 7;
    EXPECT_EQ(mpp_buffer_get_fd(buffer), -1);
    MppBufferInfo info{};
    EXPECT_EQ(mpp_buffer_info_get(buffer, &info), MPP_OK);
    EXPECT_EQ(info.size, 12345U);
    EXPECT_EQ(info.ptr, memory);
    EXPECT_EQ(info.fd, -1);
    EXPECT_EQ(info.type, MPP_BUFFER_TYPE_ION);
    EXPECT_EQ(mpp_buffer_set_index(buffer, 4), MPP_OK);
    EXPECT_EQ(mpp_buffer_get_index(buffer), 4);
    EXPECT_EQ(mpp_buffer_set_offset(buffer, 64), MPP_OK);
    EXPECT_EQ(mpp_buffer_get_offset(buffer), 64U);
    EXPECT_EQ(mpp_buffer_put(buffer), MPP_OK);
}

TEST_F(MppBuffers, AreReadAndWrittenWithinTheirSize) {
    MppBuffer buffer = take(16);
    char text[] = "abc";
    char back[4] = {};
    EXPECT_EQ(mpp_buffer_write(buffer, 12, text, 4), MPP_OK);
    EXPECT_EQ(mpp_buffer_read(buffer, 12, back, 4), MPP_OK);
    EXPECT_STREQ(back, "abc");
    EXPECT_EQ(mpp_buffer_write(buffer, 13, text, 4), MPP_ERR_VALUE);
    EXPECT_EQ(mpp_buffer_read(buffer, 17, back, 0), MPP_ERR_VALUE);
    EXPECT_EQ(mpp_buffer_read(buffer, ~size_t{0}, back, 4), MPP_ERR_VALUE);
    EXPECT_EQ(mpp_buffer_read(buffer, 0, nullptr, 4), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_buffer_put(buffer), MPP_OK);
}

TEST_F(MppBuffers, ComeBackToTheGroup) {
    MppBuffer first = take(1000);
    MppBuffer second = take(2000);
    EXPECT_EQ(mpp_buffer_group_usage(group), 3000U);
    EXPECT_EQ(mpp_buffer_group_unused(group), 0);
    EXPECT_EQ(mpp_buffer_inc_ref(first), MPP_OK);
    EXPECT_EQ(mpp_buffer_put(first), MPP_OK);
    EXPECT_EQ(mpp_buffer_group_unused(group), 0) << "a reference is left";
    EXPECT_EQ(mpp_buffer_put(first), MPP_OK);
    EXPECT_EQ(mpp_buffer_put(second), MPP_OK);
    EXPECT_EQ(mpp_buffer_group_unused(group), 2);
    EXPECT_EQ(mpp_buffer_group_usage(group), 3000U);
    EXPECT_EQ(take(900), first) << "the smallest that is large enough";
    EXPECT_EQ(take(900), second);
    EXPECT_EQ(mpp_buffer_put(first), MPP_OK);
    EXPECT_EQ(mpp_buffer_put(second), MPP_OK);
}

TEST_F(MppBuffers, KeepToTheLimits) {
    EXPECT_EQ(mpp_buffer_group_limit_config(group, 1000, 2), MPP_OK);
    MppBuffer buffer = nullptr;
    EXPECT_EQ(mpp_buffer_get(group, &buffer, 1001), MPP_ERR_VALUE);
    MppBuffer first = take(500);
    MppBuffer second = take(500);
    EXPECT_EQ(mpp_buffer_get(group, &buffer, 500), MPP_ERR_NOMEM);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(mpp_buffer_put(first), MPP_OK);
    MppBuffer larger = take(1000);  // takes the place of the free one that is too small
    EXPECT_EQ(mpp_buffer_group_usage(group), 1500U);
    EXPECT_EQ(mpp_buffer_get(group, &buffer, 1), MPP_ERR_NOMEM);
    EXPECT_EQ(mpp_buffer_group_limit_config(group, 0, 0), MPP_OK);
    MppBuffer unlimited = take(5000);
    EXPECT_EQ(mpp_buffer_group_limit_config(group, 0, -1), MPP_ERR_VALUE);
    for (MppBuffer one : {second, larger, unlimited}) {
        EXPECT_EQ(mpp_buffer_put(one), MPP_OK);
    }
}

TEST_F(MppBuffers, OutlastTheClearingOfTheirGroup) {
    EXPECT_EQ(mpp_buffer_group_limit_config(group, 0, 1), MPP_OK);
    MppBuffer old = take(1000);
    EXPECT_EQ(mpp_buffer_group_clear(group), MPP_OK);
    EXPECT_EQ(mpp_buffer_group_usage(group), 0U);
    MppBuffer fresh = take(1000);  // the old one counts no more
    std::memset(mpp_buffer_get_ptr(old), 1, 1000);
    EXPECT_EQ(mpp_buffer_put(old), MPP_OK);
    EXPECT_EQ(mpp_buffer_group_unused(group), 0) << "it does not come back";
    EXPECT_EQ(mpp_buffer_put(fresh), MPP_OK);
    EXPECT_EQ(mpp_buffer_group_unused(group), 1);
    EXPECT_EQ(mpp_buffer_group_clear(group), MPP_OK);
    EXPECT_EQ(mpp_buffer_group_unused(group), 0);
}

TEST_F(MppBuffers, OutlastTheirGroup) {
    MppBuffer buffer = take(1000);
    EXPECT_EQ(mpp_buffer_group_put(group), MPP_OK);
    group = nullptr;
    std::memset(mpp_buffer_get_ptr(buffer), 1, 1000);
    EXPECT_EQ(mpp_buffer_put(buffer), MPP_OK);
}

TEST_F(MppBuffers, OutlastTheFrameAndThePacketAroundThem) {
    MppBuffer buffer = take(1000);
    MppFrame frame = nullptr;
    MppPacket packet = nullptr;
    ASSERT_EQ(mpp_frame_init(&frame), MPP_OK);
    mpp_frame_set_buffer(frame, buffer);
    ASSERT_EQ(mpp_packet_init_with_buffer(&packet, buffer), MPP_OK);
    EXPECT_EQ(mpp_buffer_put(buffer), MPP_OK);
    EXPECT_EQ(mpp_buffer_group_unused(group), 0);
    EXPECT_EQ(mpp_frame_get_buffer(frame), buffer);
    EXPECT_EQ(mpp_frame_deinit(&frame), MPP_OK);
    EXPECT_EQ(mpp_buffer_group_unused(group), 0);
    EXPECT_EQ(mpp_packet_get_buffer(packet), buffer);
    EXPECT_EQ(mpp_packet_deinit(&packet), MPP_OK);
    EXPECT_EQ(mpp_buffer_group_unused(group), 1);
}

TEST(MppSharedBuffers, ServeThoseWithoutGroup) {
    MppBuffer buffer = nullptr;
    EXPECT_EQ(mpp_buffer_get(nullptr, &buffer, 100), MPP_OK);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(mpp_buffer_get_size(buffer), 100U);
    EXPECT_EQ(mpp_buffer_put(buffer), MPP_OK);
    MppBuffer again = nullptr;
    EXPECT_EQ(mpp_buffer_get(nullptr, &again, 100), MPP_OK);
    EXPECT_EQ(again, buffer);
    EXPECT_EQ(mpp_buffer_put(again), MPP_OK);
}

TEST_F(MppBuffers, OfTheProgramsOwnMemory) {
    std::vector<unsigned char> memory(300);
    MppBufferInfo info{};
    info.size = memory.size();
    info.ptr = memory.data();
    info.fd = 9;
    EXPECT_EQ(mpp_buffer_commit(group, &info), MPP_ERR_PERM) << "the group is an internal one";
    MppBufferGroup external = nullptr;
    ASSERT_EQ(mpp_buffer_group_get_external(&external, MPP_BUFFER_TYPE_DRM), MPP_OK);
    EXPECT_EQ(mpp_buffer_group_mode(external), MPP_BUFFER_EXTERNAL);
    EXPECT_EQ(mpp_buffer_group_type(external), MPP_BUFFER_TYPE_DRM);
    MppBuffer buffer = nullptr;
    EXPECT_EQ(mpp_buffer_get(external, &buffer, 10), MPP_ERR_NOMEM) << "nothing was committed";
    EXPECT_EQ(mpp_buffer_commit(external, &info), MPP_OK);
    EXPECT_EQ(mpp_buffer_group_unused(external), 1);
    EXPECT_EQ(mpp_buffer_get(external, &buffer, 301), MPP_ERR_NOMEM);
    EXPECT_EQ(mpp_buffer_get(external, &buffer, 300), MPP_OK);
    EXPECT_EQ(mpp_buffer_get_ptr(buffer), memory.data());
    EXPECT_EQ(mpp_buffer_get_fd(buffer), 9);
    EXPECT_EQ(mpp_buffer_put(buffer), MPP_OK);
    EXPECT_EQ(mpp_buffer_group_put(external), MPP_OK);

    MppBuffer imported = nullptr;
    EXPECT_EQ(mpp_buffer_import(&imported, &info), MPP_OK);
    EXPECT_EQ(mpp_buffer_get_ptr(imported), memory.data());
    EXPECT_EQ(mpp_buffer_put(imported), MPP_OK);
    info.size = 0;
    EXPECT_EQ(mpp_buffer_import(&imported, &info), MPP_ERR_VALUE);
    info.ptr = nullptr;
    EXPECT_EQ(mpp_buffer_import(&imported, &info), MPP_ERR_NULL_PTR);
}

TEST_F(MppBuffers, WrongArgumentsAreRefused) {
    MppBuffer buffer = nullptr;
    EXPECT_EQ(mpp_buffer_get(group, nullptr, 10), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_buffer_get(group, &buffer, 0), MPP_ERR_VALUE);
    EXPECT_EQ(mpp_buffer_put(nullptr), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_buffer_put(group), MPP_ERR_VALUE) << "a group is not a buffer";
    EXPECT_EQ(mpp_buffer_inc_ref(nullptr), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_buffer_get_ptr(nullptr), nullptr);
    EXPECT_EQ(mpp_buffer_get_ptr(group), nullptr);
    EXPECT_EQ(mpp_buffer_get_size(nullptr), 0U);
    EXPECT_EQ(mpp_buffer_get_fd(nullptr), -1);
    EXPECT_EQ(mpp_buffer_group_put(nullptr), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_buffer_group_clear(nullptr), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_buffer_group_limit_config(nullptr, 0, 0), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_buffer_group_usage(nullptr), 0U);
    EXPECT_EQ(mpp_buffer_group_unused(nullptr), 0);
    buffer = take(10);
    EXPECT_EQ(mpp_buffer_group_put(buffer), MPP_ERR_VALUE);
    MppBuffer other = nullptr;
    EXPECT_EQ(mpp_buffer_get(buffer, &other, 10), MPP_ERR_VALUE);
    EXPECT_EQ(mpp_buffer_put(buffer), MPP_OK);
    MppBufferGroup none = nullptr;
    EXPECT_EQ(mpp_buffer_group_get_internal(&none, 5), MPP_ERR_VALUE);
    EXPECT_EQ(mpp_buffer_group_get_internal(nullptr, 1), MPP_ERR_NULL_PTR);
}

TEST_F(MppBuffers, TravelBetweenThreads) {
    EXPECT_EQ(mpp_buffer_group_limit_config(group, 0, 3), MPP_OK);
    std::vector<std::thread> threads;
    for (unsigned number = 0; number < 4; ++number) {
        threads.emplace_back([this, number] {
            std::minstd_rand random(number);
            for (int i = 0; i < 500; ++i) {
                MppBuffer buffer = nullptr;
                if (mpp_buffer_get(group, &buffer, 100 + random() % 400) == MPP_OK) {
                    std::memset(mpp_buffer_get_ptr(buffer), 1, mpp_buffer_get_size(buffer));
                    mpp_buffer_put(buffer);
                }
                if (random() % 50 == 0) {
                    mpp_buffer_group_clear(group);
                }
                mpp_buffer_group_usage(group);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_LE(mpp_buffer_group_unused(group), 3);
}
