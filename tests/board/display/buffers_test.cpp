#include "tests/board/display/displayrig.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

namespace board::test {
namespace {

long openDescriptors() {
    long count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

class Buffers : public ::testing::Test {
  protected:
    Rig rig{displayWith({smallMode(640, 480, 60)})};
    Client client{rig.board};

    drm_mode_create_dumb create(std::uint32_t width, std::uint32_t height, std::uint32_t bpp,
                                int expected = 0) {
        drm_mode_create_dumb wanted{};
        wanted.width = width;
        wanted.height = height;
        wanted.bpp = bpp;
        EXPECT_EQ(client.call(DRM_IOCTL_MODE_CREATE_DUMB, wanted), expected);
        return wanted;
    }
    static drm_mode_fb_cmd2 nv12On(const drm_mode_create_dumb& dumb, std::uint32_t width,
                                   std::uint32_t height) {
        drm_mode_fb_cmd2 wanted{};
        wanted.width = width;
        wanted.height = height;
        wanted.pixel_format = DRM_FORMAT_NV12;
        wanted.handles[0] = wanted.handles[1] = dumb.handle;
        wanted.pitches[0] = wanted.pitches[1] = dumb.pitch;
        wanted.offsets[1] = dumb.pitch * height;
        return wanted;
    }
};

TEST_F(Buffers, pitchIsAMultipleOf64) {
    EXPECT_EQ(create(1920, 1620, 8).pitch, 1920u);
    EXPECT_EQ(create(1366, 1152, 8).pitch, 1408u);
    EXPECT_EQ(create(720, 480, 32).pitch, 2880u);
    const drm_mode_create_dumb odd = create(1, 1, 1);
    EXPECT_EQ(odd.pitch, 64u);
    EXPECT_EQ(odd.size, 4096u);
}

TEST_F(Buffers, impossibleSizesAreRefused) {
    create(0, 10, 8, -EINVAL);
    create(10, 0, 8, -EINVAL);
    create(10, 10, 0, -EINVAL);
    create(0xffffffff, 1, 32, -EINVAL);
    create(0xffffffff, 0xffffffff, 0xffffffff, -EINVAL);
    create(65536, 65535, 8, -ENOMEM);
}

TEST_F(Buffers, theBudgetEndsAndComesBack) {
    std::vector<std::uint32_t> handles;
    int result = 0;
    for (unsigned i = 0; i < 1000 && result == 0; ++i) {
        drm_mode_create_dumb wanted{};
        wanted.width = wanted.height = wanted.bpp = 8;
        result = client.call(DRM_IOCTL_MODE_CREATE_DUMB, wanted);
        if (result == 0)
            handles.push_back(wanted.handle);
    }
    EXPECT_EQ(result, -ENOMEM);
    EXPECT_GE(handles.size(), 74u);  // two clients with 37 buffers each
    for (const std::uint32_t handle : handles) {
        drm_mode_destroy_dumb gone{handle};
        EXPECT_EQ(client.call(DRM_IOCTL_MODE_DESTROY_DUMB, gone), 0);
    }
    create(8, 8, 8);
}

TEST_F(Buffers, mappingIsSharedAndSealed) {
    const drm_mode_create_dumb dumb = create(640, 480, 8);
    drm_mode_map_dumb place{};
    place.handle = dumb.handle;
    ASSERT_EQ(client.call(DRM_IOCTL_MODE_MAP_DUMB, place), 0);
    EXPECT_EQ(place.offset, std::uint64_t(dumb.handle) << 32);
    const Mapping mapping = client.map(place.offset, dumb.size);
    ASSERT_GE(mapping.memfd, 0);
    struct stat info {};
    ASSERT_EQ(fstat(mapping.memfd, &info), 0);
    EXPECT_EQ(std::uint64_t(info.st_size), dumb.size);
    EXPECT_NE(ftruncate(mapping.memfd, 0), 0);
    EXPECT_NE(ftruncate(mapping.memfd, off_t(dumb.size * 2)), 0);
    EXPECT_EQ(client.map(place.offset, dumb.size + 1).error, -EINVAL);
    EXPECT_EQ(client.map(place.offset + 4096, 4096).error, -EINVAL);
    EXPECT_EQ(client.map(0, 4096).error, -EINVAL);
    EXPECT_EQ(client.map(77ull << 32, 4096).error, -EINVAL);
    place.handle = 77;
    EXPECT_EQ(client.call(DRM_IOCTL_MODE_MAP_DUMB, place), -ENOENT);
}

TEST_F(Buffers, handlesAreTheClientsOwn) {
    const drm_mode_create_dumb dumb = create(640, 480, 8);
    Client other(rig.board);
    EXPECT_EQ(other.map(std::uint64_t(dumb.handle) << 32, 4096).error, -EINVAL);
    drm_gem_close gone{dumb.handle, 0};
    EXPECT_EQ(other.call(DRM_IOCTL_GEM_CLOSE, gone), -EINVAL);
    EXPECT_EQ(client.call(DRM_IOCTL_GEM_CLOSE, gone), 0);
    EXPECT_EQ(client.call(DRM_IOCTL_GEM_CLOSE, gone), -EINVAL);
}

TEST_F(Buffers, framebuffersStayInsideTheirBuffers) {
    const drm_mode_create_dumb dumb = create(640, 720, 8);
    const auto result = [&](auto change) {
        drm_mode_fb_cmd2 wanted = nv12On(dumb, 640, 480);
        change(wanted);
        return client.call(DRM_IOCTL_MODE_ADDFB2, wanted);
    };
    EXPECT_EQ(result([](auto&) {}), 0);
    EXPECT_EQ(result([](auto& fb) { fb.offsets[1] += 64; }), 0);  // the last page has room
    EXPECT_EQ(result([](auto& fb) { fb.offsets[1] += 4096; }), -EINVAL);
    EXPECT_EQ(result([](auto& fb) { fb.offsets[1] = 0xffffffff; }), -ERANGE);
    EXPECT_EQ(result([](auto& fb) { fb.pitches[0] = 0xffffffff; }), -ERANGE);
    EXPECT_EQ(result([](auto& fb) { fb.pitches[0] = 639; }), -EINVAL);
    EXPECT_EQ(result([](auto& fb) { fb.height = 500; }), -EINVAL);
    EXPECT_EQ(result([](auto& fb) { fb.width = 639; }), -EINVAL);
    EXPECT_EQ(result([](auto& fb) { fb.height = 0; }), -EINVAL);
    EXPECT_EQ(result([](auto& fb) { fb.width = 8194; }), -EINVAL);
    EXPECT_EQ(result([](auto& fb) { fb.handles[1] = 0; }), -EINVAL);
    EXPECT_EQ(result([](auto& fb) { fb.handles[1] = 99; }), -ENOENT);
    EXPECT_EQ(result([](auto& fb) { fb.pixel_format = DRM_FORMAT_NV16; }), -EINVAL);
    EXPECT_EQ(result([](auto& fb) { fb.flags = DRM_MODE_FB_MODIFIERS; }), -EINVAL);
    EXPECT_EQ(result([](auto& fb) { fb.flags = 0x80; }), -EINVAL);
    EXPECT_EQ(result([](auto& fb) { fb.pixel_format = DRM_FORMAT_XRGB8888; }), -EINVAL);
}

TEST_F(Buffers, oldCallTakesXrgbOnly) {
    const drm_mode_create_dumb dumb = create(640, 480, 32);
    drm_mode_fb_cmd wanted{};
    wanted.width = 640;
    wanted.height = 480;
    wanted.pitch = dumb.pitch;
    wanted.bpp = 32;
    wanted.depth = 24;
    wanted.handle = dumb.handle;
    ASSERT_EQ(client.call(DRM_IOCTL_MODE_ADDFB, wanted), 0);
    drm_mode_fb_cmd query{};
    query.fb_id = wanted.fb_id;
    ASSERT_EQ(client.call(DRM_IOCTL_MODE_GETFB, query), 0);
    EXPECT_EQ(query.width, 640u);
    EXPECT_EQ(query.pitch, dumb.pitch);
    wanted.depth = 16;
    EXPECT_EQ(client.call(DRM_IOCTL_MODE_ADDFB, wanted), -EINVAL);
}

TEST_F(Buffers, pictureOutlivesItsHandle) {
    const drm_mode_create_dumb dumb = create(640, 720, 8);
    drm_mode_fb_cmd2 wanted = nv12On(dumb, 640, 480);
    ASSERT_EQ(client.call(DRM_IOCTL_MODE_ADDFB2, wanted), 0);
    ASSERT_EQ(client.setCrtc(wanted.fb_id, client.modes()[0]), 0);
    drm_mode_destroy_dumb gone{dumb.handle};
    ASSERT_EQ(client.call(DRM_IOCTL_MODE_DESTROY_DUMB, gone), 0);
    EXPECT_EQ(client.crtc().fb_id, wanted.fb_id);
    const std::string path = ::testing::TempDir() + "outlives-" + std::to_string(getpid()) + ".png";
    EXPECT_EQ(rig.await([&](auto done) { rig.display->picture(path, done); }), "");
    std::filesystem::remove(path);
}

TEST_F(Buffers, clientsLeaveNothingBehind) {
    const long before = openDescriptors();
    for (unsigned round = 0; round < 5; ++round) {
        Client busy(rig.board);
        std::vector<std::unique_ptr<Canvas>> canvases;
        for (unsigned i = 0; i < 37; ++i)
            canvases.push_back(std::make_unique<Canvas>(busy, 640, 480));
        ASSERT_NE(canvases.back()->framebufferId(), 0u);
    }
    EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
}  // namespace board::test
