// Which ioctls carry pointers inside their argument: the client gathers and scatters by this table,
// the daemon finds block i of an ioctl under the same index.
#pragma once

#include <drm.h>
#include <drm_mode.h>
#include <linux/uvcvideo.h>
#include <linux/videodev2.h>
#include <sound/asound.h>

#include <cstddef>
#include <cstdint>

namespace board::wire {

enum class Direction : std::uint8_t { in, out, inOut };

// As a number of bytes: a frame of the sound stream, as long as its handle's state word says.
constexpr std::uint16_t frameElement = 0;

// A pointer at `pointerOffset` (8 bytes) to `count * elementBytes` bytes; the count stands at
// `countOffset` (`countBytes` wide: 2, 4 or 8).
struct NestedPointer {
    std::uint32_t request;
    std::uint16_t pointerOffset;
    std::uint16_t countOffset;
    std::uint8_t countBytes;
    std::uint16_t elementBytes;
    Direction direction;
};

// clang-format off
constexpr NestedPointer nestedPointers[] = {
    {std::uint32_t(VIDIOC_G_EXT_CTRLS), offsetof(v4l2_ext_controls, controls), offsetof(v4l2_ext_controls, count), 4, sizeof(v4l2_ext_control), Direction::inOut},
    {std::uint32_t(VIDIOC_S_EXT_CTRLS), offsetof(v4l2_ext_controls, controls), offsetof(v4l2_ext_controls, count), 4, sizeof(v4l2_ext_control), Direction::inOut},
    {std::uint32_t(VIDIOC_TRY_EXT_CTRLS), offsetof(v4l2_ext_controls, controls), offsetof(v4l2_ext_controls, count), 4, sizeof(v4l2_ext_control), Direction::inOut},
    {std::uint32_t(UVCIOC_CTRL_QUERY), offsetof(uvc_xu_control_query, data), offsetof(uvc_xu_control_query, size), 2, 1, Direction::inOut},
    {std::uint32_t(DRM_IOCTL_VERSION), offsetof(drm_version, name), offsetof(drm_version, name_len), 8, 1, Direction::out},
    {std::uint32_t(DRM_IOCTL_VERSION), offsetof(drm_version, date), offsetof(drm_version, date_len), 8, 1, Direction::out},
    {std::uint32_t(DRM_IOCTL_VERSION), offsetof(drm_version, desc), offsetof(drm_version, desc_len), 8, 1, Direction::out},
    {std::uint32_t(DRM_IOCTL_GET_UNIQUE), offsetof(drm_unique, unique), offsetof(drm_unique, unique_len), 8, 1, Direction::out},
    {std::uint32_t(DRM_IOCTL_MODE_GETRESOURCES), offsetof(drm_mode_card_res, fb_id_ptr), offsetof(drm_mode_card_res, count_fbs), 4, 4, Direction::out},
    {std::uint32_t(DRM_IOCTL_MODE_GETRESOURCES), offsetof(drm_mode_card_res, crtc_id_ptr), offsetof(drm_mode_card_res, count_crtcs), 4, 4, Direction::out},
    {std::uint32_t(DRM_IOCTL_MODE_GETRESOURCES), offsetof(drm_mode_card_res, connector_id_ptr), offsetof(drm_mode_card_res, count_connectors), 4, 4, Direction::out},
    {std::uint32_t(DRM_IOCTL_MODE_GETRESOURCES), offsetof(drm_mode_card_res, encoder_id_ptr), offsetof(drm_mode_card_res, count_encoders), 4, 4, Direction::out},
    {std::uint32_t(DRM_IOCTL_MODE_GETCONNECTOR), offsetof(drm_mode_get_connector, encoders_ptr), offsetof(drm_mode_get_connector, count_encoders), 4, 4, Direction::out},
    {std::uint32_t(DRM_IOCTL_MODE_GETCONNECTOR), offsetof(drm_mode_get_connector, modes_ptr), offsetof(drm_mode_get_connector, count_modes), 4, sizeof(drm_mode_modeinfo), Direction::out},
    {std::uint32_t(DRM_IOCTL_MODE_GETCONNECTOR), offsetof(drm_mode_get_connector, props_ptr), offsetof(drm_mode_get_connector, count_props), 4, 4, Direction::out},
    {std::uint32_t(DRM_IOCTL_MODE_GETCONNECTOR), offsetof(drm_mode_get_connector, prop_values_ptr), offsetof(drm_mode_get_connector, count_props), 4, 8, Direction::out},
    {std::uint32_t(DRM_IOCTL_MODE_GETPLANERESOURCES), offsetof(drm_mode_get_plane_res, plane_id_ptr), offsetof(drm_mode_get_plane_res, count_planes), 4, 4, Direction::out},
    {std::uint32_t(DRM_IOCTL_MODE_GETPLANE), offsetof(drm_mode_get_plane, format_type_ptr), offsetof(drm_mode_get_plane, count_format_types), 4, 4, Direction::out},
    {std::uint32_t(DRM_IOCTL_MODE_OBJ_GETPROPERTIES), offsetof(drm_mode_obj_get_properties, props_ptr), offsetof(drm_mode_obj_get_properties, count_props), 4, 4, Direction::out},
    {std::uint32_t(DRM_IOCTL_MODE_OBJ_GETPROPERTIES), offsetof(drm_mode_obj_get_properties, prop_values_ptr), offsetof(drm_mode_obj_get_properties, count_props), 4, 8, Direction::out},
    {std::uint32_t(DRM_IOCTL_MODE_GETPROPERTY), offsetof(drm_mode_get_property, values_ptr), offsetof(drm_mode_get_property, count_values), 4, 8, Direction::out},
    {std::uint32_t(DRM_IOCTL_MODE_GETPROPERTY), offsetof(drm_mode_get_property, enum_blob_ptr), offsetof(drm_mode_get_property, count_enum_blobs), 4, sizeof(drm_mode_property_enum), Direction::out},
    {std::uint32_t(DRM_IOCTL_MODE_GETPROPBLOB), offsetof(drm_mode_get_blob, data), offsetof(drm_mode_get_blob, length), 4, 1, Direction::out},
    {std::uint32_t(DRM_IOCTL_MODE_SETCRTC), offsetof(drm_mode_crtc, set_connectors_ptr), offsetof(drm_mode_crtc, count_connectors), 4, 4, Direction::in},
    {std::uint32_t(SNDRV_PCM_IOCTL_WRITEI_FRAMES), offsetof(snd_xferi, buf), offsetof(snd_xferi, frames), 8, frameElement, Direction::in},
    {std::uint32_t(SNDRV_PCM_IOCTL_READI_FRAMES), offsetof(snd_xferi, buf), offsetof(snd_xferi, frames), 8, frameElement, Direction::out},
    {std::uint32_t(SNDRV_CTL_IOCTL_ELEM_LIST), offsetof(snd_ctl_elem_list, pids), offsetof(snd_ctl_elem_list, space), 4, sizeof(snd_ctl_elem_id), Direction::out},
};
// clang-format on

}  // namespace board::wire
