#include "tests/board/display/displayrig.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

namespace board::test {
namespace {

constexpr std::uint32_t connected = 1, disconnected = 2;
constexpr std::uint32_t connectorId = 33, crtcId = 31, encoderId = 32;

class Modeset : public ::testing::Test {
  protected:
    Rig rig{displayWith({smallMode(640, 480, 60), smallMode(320, 240, 50)})};

    std::uint64_t property(Client& client, const std::string& name, std::uint32_t* id = nullptr) {
        IoctlCall call;
        call.request = DRM_IOCTL_MODE_OBJ_GETPROPERTIES;
        drm_mode_obj_get_properties query{};
        query.obj_id = connectorId;
        query.obj_type = DRM_MODE_OBJECT_CONNECTOR;
        call.argument.resize(sizeof query);
        call.store(query);
        call.blocks.resize(2);
        call.blocks[0].capacity = call.blocks[1].capacity = 1024;
        EXPECT_EQ(client.call(call), 0);
        const auto count = call.load<drm_mode_obj_get_properties>().count_props;
        const auto* ids = reinterpret_cast<const std::uint32_t*>(call.blocks[0].reply.data());
        const auto* values = reinterpret_cast<const std::uint64_t*>(call.blocks[1].reply.data());
        for (std::uint32_t i = 0; i < count; ++i) {
            drm_mode_get_property info{};
            info.prop_id = ids[i];
            EXPECT_EQ(client.call(DRM_IOCTL_MODE_GETPROPERTY, info), 0);
            if (name == info.name) {
                if (id != nullptr)
                    *id = ids[i];
                return values[i];
            }
        }
        ADD_FAILURE() << "no property " << name;
        return 0;
    }

    int set(Client& client, std::uint32_t id, std::uint64_t value) {
        drm_mode_obj_set_property wanted{};
        wanted.obj_id = connectorId;
        wanted.obj_type = DRM_MODE_OBJECT_CONNECTOR;
        wanted.prop_id = id;
        wanted.value = value;
        return client.call(DRM_IOCTL_MODE_OBJ_SETPROPERTY, wanted);
    }
};

TEST_F(Modeset, nodeIsTheCard) {
    EXPECT_EQ(rig.board.nodePath, "/dev/dri/card0");
    EXPECT_EQ(rig.board.nodeMajor, 226u);
    EXPECT_EQ(rig.board.nodeMinor, 0u);
}

TEST_F(Modeset, versionNamesTheDriverAsFarAsThereIsRoom) {
    Client client(rig.board);
    IoctlCall call;
    call.request = DRM_IOCTL_VERSION;
    call.argument.resize(sizeof(drm_version));
    call.blocks.resize(3);
    call.blocks[0].capacity = 4;
    ASSERT_EQ(client.call(call), 0);
    EXPECT_EQ(call.load<drm_version>().name_len, 8u);
    EXPECT_EQ(std::memcmp(call.blocks[0].reply.data(), "rock", 4), 0);
    EXPECT_EQ(call.blocks[0].reply.size(), 4u);
}

TEST_F(Modeset, capabilities) {
    Client client(rig.board);
    const auto value = [&](std::uint64_t capability) {
        drm_get_cap query{capability, 77};
        const int result = client.call(DRM_IOCTL_GET_CAP, query);
        return result == 0 ? int(query.value) : result;
    };
    EXPECT_EQ(value(DRM_CAP_DUMB_BUFFER), 1);
    EXPECT_EQ(value(DRM_CAP_TIMESTAMP_MONOTONIC), 1);
    EXPECT_EQ(value(DRM_CAP_PRIME), 0);
    EXPECT_EQ(value(DRM_CAP_ADDFB2_MODIFIERS), 0);
    EXPECT_EQ(value(0x77), -EINVAL);
    drm_set_client_cap atomic{DRM_CLIENT_CAP_ATOMIC, 1};
    EXPECT_EQ(client.call(DRM_IOCTL_SET_CLIENT_CAP, atomic), -EOPNOTSUPP);
    drm_set_client_cap planes{DRM_CLIENT_CAP_UNIVERSAL_PLANES, 2};
    EXPECT_EQ(client.call(DRM_IOCTL_SET_CLIENT_CAP, planes), -EINVAL);
}

TEST_F(Modeset, thePrimaryPlaneShowsToThoseWhoKnowIt) {
    Client client(rig.board);
    drm_mode_get_plane_res planes{};
    ASSERT_EQ(client.call(DRM_IOCTL_MODE_GETPLANERESOURCES, planes), 0);
    EXPECT_EQ(planes.count_planes, 0u);
    drm_set_client_cap universal{DRM_CLIENT_CAP_UNIVERSAL_PLANES, 1};
    ASSERT_EQ(client.call(DRM_IOCTL_SET_CLIENT_CAP, universal), 0);
    ASSERT_EQ(client.call(DRM_IOCTL_MODE_GETPLANERESOURCES, planes), 0);
    EXPECT_EQ(planes.count_planes, 1u);
}

TEST_F(Modeset, missingFeaturesAnswerAsAKernelDoes) {
    Client client(rig.board);
    drm_mode_atomic atomic{};
    EXPECT_EQ(client.call(DRM_IOCTL_MODE_ATOMIC, atomic), -EOPNOTSUPP);
    drm_mode_fb_dirty_cmd dirty{};
    EXPECT_EQ(client.call(DRM_IOCTL_MODE_DIRTYFB, dirty), -ENOSYS);
    drm_mode_crtc_lut gamma{};
    EXPECT_EQ(client.call(DRM_IOCTL_MODE_SETGAMMA, gamma), -ENOSYS);
    drm_mode_cursor cursor{};
    EXPECT_EQ(client.call(DRM_IOCTL_MODE_CURSOR, cursor), -ENXIO);
    EXPECT_FALSE(client.handle().knows(DRM_IOWR(0xee, int)));
    EXPECT_EQ(client.handle().unknownIoctlError(), EINVAL);
}

TEST_F(Modeset, listsAreFilledOnlyWhenTheyFit) {
    Client client(rig.board);
    const Canvas one(client, 640, 480), two(client, 640, 480);
    IoctlCall call;
    call.request = DRM_IOCTL_MODE_GETRESOURCES;
    call.argument.resize(sizeof(drm_mode_card_res));
    call.blocks.resize(4);
    call.blocks[0].capacity = 4;  // two would need 8
    call.blocks[1].capacity = 4;
    ASSERT_EQ(client.call(call), 0);
    const auto resources = call.load<drm_mode_card_res>();
    EXPECT_EQ(resources.count_fbs, 2u);
    EXPECT_EQ(resources.count_crtcs, 1u);
    EXPECT_EQ(resources.count_connectors, 1u);
    EXPECT_EQ(resources.count_encoders, 1u);
    EXPECT_TRUE(call.blocks[0].reply.empty());
    EXPECT_EQ(call.blocks[1].reply.size(), 4u);
}

TEST_F(Modeset, consoleDrivesTheDisplayBeforeAnyClient) {
    Client client(rig.board);
    const drm_mode_get_connector connector = client.connector();
    EXPECT_EQ(connector.connection, connected);
    EXPECT_EQ(connector.count_modes, 2u);
    EXPECT_EQ(connector.mm_width, 520u);
    EXPECT_EQ(connector.encoder_id, encoderId);
    EXPECT_EQ(client.encoder().crtc_id, crtcId);
    EXPECT_EQ(client.encoder().possible_crtcs, 1u);
    const drm_mode_crtc crtc = client.crtc();
    EXPECT_EQ(crtc.mode_valid, 1u);
    EXPECT_EQ(crtc.mode.hdisplay, 640);
    EXPECT_NE(crtc.fb_id, 0u);
    EXPECT_EQ(rig.figures().mode, "640x480@60");
}

TEST_F(Modeset, unplugAndPlugShowAtOnce) {
    Client client(rig.board);
    const std::uint64_t firstBlob = property(client, "EDID");
    EXPECT_NE(firstBlob, 0u);
    rig.board.run([&] { rig.display->unplug(); });
    EXPECT_EQ(client.connector().connection, disconnected);
    EXPECT_EQ(client.connector().count_modes, 0u);
    EXPECT_EQ(client.connector().mm_width, 0u);
    EXPECT_TRUE(client.modes().empty());
    EXPECT_EQ(property(client, "EDID"), 0u);
    rig.board.run([&] { rig.display->plug(); });
    EXPECT_EQ(client.connector().connection, connected);
    EXPECT_EQ(client.modes().size(), 2u);
}

TEST_F(Modeset, displayPluggedLateGetsTheConsole) {
    Rig late(displayWith({smallMode(640, 480, 60)}), false);
    Client client(late.board);
    EXPECT_EQ(client.connector().encoder_id, 0u);
    EXPECT_EQ(late.figures().mode, "");
    late.board.run([&] { late.display->plug(); });
    EXPECT_EQ(client.connector().encoder_id, encoderId);
    EXPECT_EQ(late.figures().mode, "640x480@60");
}

TEST_F(Modeset, displayWithoutModesHasAnEncoderAllTheSame) {
    Rig bare(displayWith({}));
    Client client(bare.board);
    EXPECT_EQ(client.connector().count_modes, 0u);
    EXPECT_EQ(client.connector().encoder_id, encoderId);
    EXPECT_EQ(client.encoder().crtc_id, crtcId);
}

TEST_F(Modeset, anotherDisplayBringsItsModesAndEdid) {
    Client client(rig.board);
    DisplayDescription other = displayWith({smallMode(800, 600, 60)});
    other.edid[10] = 99;
    other.possibleCrtcs = 3;
    rig.board.run([&] { rig.display->replaceDescription(other); });
    ASSERT_EQ(client.modes().size(), 1u);
    EXPECT_EQ(client.modes()[0].hdisplay, 800);
    EXPECT_EQ(client.encoder().possible_crtcs, 3u);
    EXPECT_EQ(client.crtc().mode.hdisplay, 800);  // the console follows
    IoctlCall call;
    call.request = DRM_IOCTL_MODE_GETPROPBLOB;
    drm_mode_get_blob query{};
    query.blob_id = std::uint32_t(property(client, "EDID"));
    query.length = 256;
    call.argument.resize(sizeof query);
    call.store(query);
    call.blocks.resize(1);
    call.blocks[0].capacity = 256;
    ASSERT_EQ(client.call(call), 0);
    ASSERT_EQ(call.blocks[0].reply.size(), 256u);
    EXPECT_EQ(int(call.blocks[0].reply[10]), 99);
    drm_mode_get_blob unknown{};
    unknown.blob_id = 9999;
    EXPECT_EQ(client.call(DRM_IOCTL_MODE_GETPROPBLOB, unknown), -ENOENT);
}

TEST_F(Modeset, propertiesAreCheckedAndKept) {
    Client client(rig.board);
    for (const char* name : {"brightness", "contrast", "saturation", "hue"}) {
        std::uint32_t id = 0;
        EXPECT_NE(property(client, name, &id), 50u) << name;
        EXPECT_EQ(set(client, id, 50), 0) << name;
        EXPECT_EQ(property(client, name), 50u) << name;
        EXPECT_EQ(set(client, id, 101), -EINVAL) << name;
        EXPECT_EQ(property(client, name), 50u) << name;
    }
    std::uint32_t format = 0, edid = 0, nonDesktop = 0;
    EXPECT_EQ(property(client, "hdmi_output_format", &format), 0u);
    EXPECT_EQ(set(client, format, 1), 0);
    EXPECT_EQ(property(client, "hdmi_output_format"), 1u);
    EXPECT_EQ(set(client, format, 9), -EINVAL);
    property(client, "EDID", &edid);
    EXPECT_EQ(set(client, edid, 0), -EINVAL);
    property(client, "non-desktop", &nonDesktop);
    EXPECT_EQ(set(client, nonDesktop, 1), -EINVAL);  // in range, but immutable
    EXPECT_EQ(set(client, 777, 0), -EINVAL);
    drm_mode_connector_set_property old{};
    old.connector_id = connectorId;
    old.prop_id = format;
    old.value = 2;
    EXPECT_EQ(client.call(DRM_IOCTL_MODE_SETPROPERTY, old), 0);
    EXPECT_EQ(property(client, "hdmi_output_format"), 2u);
}

TEST_F(Modeset, secondClientMayLookButNotTouch) {
    Client master(rig.board);
    Client other(rig.board);
    const Canvas canvas(other, 640, 480);
    ASSERT_NE(canvas.framebufferId(), 0u);
    EXPECT_EQ(other.modes().size(), 2u);
    EXPECT_EQ(other.setCrtc(canvas.framebufferId(), other.modes()[0]), -EACCES);
    EXPECT_EQ(other.flip(canvas.framebufferId()), -EACCES);
    EXPECT_EQ(set(other, 21, 50), -EACCES);
    int nothing = 0;
    EXPECT_EQ(other.call(DRM_IOCTL_SET_MASTER, nothing), -EBUSY);
    EXPECT_EQ(other.call(DRM_IOCTL_DROP_MASTER, nothing), -EINVAL);
    EXPECT_EQ(master.call(DRM_IOCTL_DROP_MASTER, nothing), 0);
    EXPECT_EQ(other.call(DRM_IOCTL_SET_MASTER, nothing), 0);
    EXPECT_EQ(other.setCrtc(canvas.framebufferId(), other.modes()[0]), 0);
    EXPECT_EQ(master.setCrtc(canvas.framebufferId(), other.modes()[0]), -EACCES);
}

TEST_F(Modeset, magicAuthenticates) {
    Client master(rig.board);
    Client other(rig.board);
    const auto authenticated = [&] {
        drm_client info{};
        EXPECT_EQ(other.call(DRM_IOCTL_GET_CLIENT, info), 0);
        return info.auth != 0;
    };
    EXPECT_FALSE(authenticated());
    drm_auth magic{};
    ASSERT_EQ(other.call(DRM_IOCTL_GET_MAGIC, magic), 0);
    EXPECT_EQ(other.call(DRM_IOCTL_AUTH_MAGIC, magic), -EACCES);
    drm_auth wrong{magic.magic + 1};
    EXPECT_EQ(master.call(DRM_IOCTL_AUTH_MAGIC, wrong), -EINVAL);
    EXPECT_EQ(master.call(DRM_IOCTL_AUTH_MAGIC, magic), 0);
    EXPECT_TRUE(authenticated());
}

TEST_F(Modeset, lastCloseBringsTheConsoleBack) {
    {
        Client client(rig.board);
        const Canvas canvas(client, 320, 240);
        ASSERT_EQ(client.setCrtc(canvas.framebufferId(), client.modes()[1]), 0);
        EXPECT_EQ(rig.figures().mode, "320x240@50");
        EXPECT_EQ(client.crtc().fb_id, canvas.framebufferId());
    }
    EXPECT_EQ(rig.figures().mode, "640x480@60");
    Client next(rig.board);
    EXPECT_EQ(next.connector().encoder_id, encoderId);
    drm_mode_card_res resources{};
    ASSERT_EQ(next.call(DRM_IOCTL_MODE_GETRESOURCES, resources), 0);
    EXPECT_EQ(resources.count_fbs, 0u);
}

TEST_F(Modeset, consoleComesBackAnyNumberOfTimes) {
    for (int round = 0; round < 300; ++round) {  // more than the card keeps frame buffers
        Client client(rig.board);
        const Canvas canvas(client, 320, 240);
        ASSERT_NE(canvas.framebufferId(), 0u) << "round " << round;
        ASSERT_EQ(client.setCrtc(canvas.framebufferId(), client.modes()[1]), 0);
    }
}

TEST_F(Modeset, deadMasterLeavesTheConsoleAndRoomForTheNext) {
    auto master = std::make_unique<Client>(rig.board);
    Client watcher(rig.board);
    const Canvas canvas(*master, 320, 240);
    ASSERT_EQ(master->setCrtc(canvas.framebufferId(), master->modes()[1]), 0);
    master.reset();
    EXPECT_EQ(watcher.crtc().mode.hdisplay, 640);
    Client next(rig.board);
    const Canvas fresh(next, 640, 480);
    EXPECT_EQ(next.setCrtc(fresh.framebufferId(), next.modes()[0]), 0);
}

TEST_F(Modeset, removingThePictureOnScreenTurnsTheCrtcOff) {
    Client client(rig.board);
    const Canvas canvas(client, 640, 480);
    ASSERT_EQ(client.setCrtc(canvas.framebufferId(), client.modes()[0]), 0);
    EXPECT_EQ(client.removeFramebuffer(canvas.framebufferId()), 0);
    EXPECT_EQ(client.crtc().mode_valid, 0u);
    EXPECT_EQ(client.connector().encoder_id, 0u);
    EXPECT_EQ(client.removeFramebuffer(canvas.framebufferId()), -ENOENT);
    EXPECT_EQ(rig.figures().mode, "");
}

TEST_F(Modeset, setCrtcRefusesNonsense) {
    Client client(rig.board);
    const Canvas canvas(client, 320, 240);
    const drm_mode_modeinfo small = client.modes()[1];
    EXPECT_EQ(client.setCrtc(canvas.framebufferId(), client.modes()[0]), -ENOSPC);
    EXPECT_EQ(client.setCrtc(9999, small), -ENOENT);
    drm_mode_modeinfo broken = small;
    broken.clock = 0;
    EXPECT_EQ(client.setCrtc(canvas.framebufferId(), broken), -EINVAL);
    drm_mode_crtc without{};
    without.crtc_id = crtcId;
    without.fb_id = canvas.framebufferId();
    without.mode_valid = 1;
    without.mode = small;
    EXPECT_EQ(client.call(DRM_IOCTL_MODE_SETCRTC, without), -EINVAL);  // no connector
    without.count_connectors = 1;
    EXPECT_EQ(client.call(DRM_IOCTL_MODE_SETCRTC, without), -EFAULT);  // a list without an entry
    without.crtc_id = 5;
    EXPECT_EQ(client.call(DRM_IOCTL_MODE_SETCRTC, without), -ENOENT);
    EXPECT_EQ(client.setCrtc(canvas.framebufferId(), small), 0);
    EXPECT_EQ(client.crtcOff(), 0);
    EXPECT_EQ(client.crtc().mode_valid, 0u);
}

TEST_F(Modeset, anyIoctlSurvivesAnyArgument) {
    Client client(rig.board);
    const Canvas canvas(client, 640, 480);
    ASSERT_EQ(client.setCrtc(canvas.framebufferId(), client.modes()[0]), 0);
    std::uint32_t random = 1;
    const auto next = [&] { return random = random * 1664525u + 1013904223u; };
    unsigned known = 0;
    for (unsigned round = 0; round < 40; ++round) {
        for (unsigned number = 0; number < 0x100; ++number) {
            for (const std::uint32_t size :
                 {0u, 4u, 8u, 12u, 16u, 20u, 24u, 28u, 32u, 36u, 40u, 64u, 68u, 80u, 104u}) {
                for (const std::uint32_t direction : {0u, 1u, 2u, 3u}) {
                    const std::uint32_t request = _IOC(direction, 'd', number, size);
                    if (!client.handle().knows(request))
                        continue;
                    ++known;
                    IoctlCall call;
                    call.request = request;
                    call.argument.resize(size);
                    for (std::byte& byte : call.argument)
                        byte = round == 0 ? std::byte(0xff) : std::byte(next() >> 28);
                    call.blocks.resize(round % 5);
                    for (NestedBlock& block : call.blocks) {
                        block.capacity = next() >> 20;
                        block.sent.resize(next() >> 29);
                    }
                    client.call(call);
                    for (const NestedBlock& block : call.blocks)
                        ASSERT_LE(block.reply.size(), block.capacity);
                }
            }
        }
    }
    EXPECT_GT(known, 1000u);
    Client after(rig.board);
    EXPECT_EQ(after.modes().size(), 2u);
}

}  // namespace
}  // namespace board::test
