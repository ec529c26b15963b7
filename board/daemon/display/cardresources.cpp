// The card's objects and their properties, as clients list them.
#include "board/daemon/display/cardhandle.h"

#include <drm.h>
#include <drm_fourcc.h>
#include <drm_mode.h>

#include <cerrno>
#include <cstring>

namespace board {

int CardHandle::getResources(IoctlCall& call) {
    auto resources = call.load<drm_mode_card_res>();
    replyList(call, 0, framebuffers_);
    replyList(call, 1, std::vector<std::uint32_t>{id::crtc});
    replyList(call, 2, std::vector<std::uint32_t>{id::connector});
    replyList(call, 3, std::vector<std::uint32_t>{id::encoder});
    resources.count_fbs = std::uint32_t(framebuffers_.size());
    resources.count_crtcs = resources.count_connectors = resources.count_encoders = 1;
    resources.min_width = resources.min_height = 0;
    resources.max_width = resources.max_height = maxFramebufferSide;
    call.store(resources);
    return 0;
}

int CardHandle::getCrtc(IoctlCall& call) {
    auto crtc = call.load<drm_mode_crtc>();
    if (crtc.crtc_id != id::crtc)
        return -ENOENT;
    const Crtc& state = card_.crtc();
    crtc.x = crtc.y = crtc.fb_id = crtc.gamma_size = crtc.mode_valid = 0;
    crtc.mode = {};
    if (state.on()) {
        crtc.x = state.x();
        crtc.y = state.y();
        crtc.fb_id = state.latest()->id;
        crtc.mode_valid = 1;
        crtc.mode = state.mode();
    }
    call.store(crtc);
    return 0;
}

int CardHandle::getEncoder(IoctlCall& call) {
    auto encoder = call.load<drm_mode_get_encoder>();
    if (encoder.encoder_id != id::encoder)
        return -ENOENT;
    encoder.encoder_type = DRM_MODE_ENCODER_TMDS;
    encoder.crtc_id = card_.routed() ? id::crtc : 0;
    encoder.possible_crtcs = card_.description().possibleCrtcs;
    encoder.possible_clones = 0;
    call.store(encoder);
    return 0;
}

int CardHandle::getConnector(IoctlCall& call) {
    auto connector = call.load<drm_mode_get_connector>();
    if (connector.connector_id != id::connector)
        return -ENOENT;
    std::vector<drm_mode_modeinfo> modes;
    for (drm_mode_modeinfo mode : card_.modes()) {
        // What a client has not said it understands is kept from it.
        if (!stereo_ && (mode.flags & DRM_MODE_FLAG_3D_MASK) != 0)
            continue;
        if (!aspectRatios_)
            mode.flags &= ~std::uint32_t(DRM_MODE_FLAG_PIC_AR_MASK);
        modes.push_back(mode);
    }
    const PropertyValues& properties = card_.connectorProperties();
    replyList(call, 0, std::vector<std::uint32_t>{id::encoder});
    replyList(call, 1, modes);
    replyList(call, 2, properties.ids());
    replyList(call, 3, properties.values());
    const bool connected = card_.plugged();
    connector.count_encoders = 1;
    connector.count_modes = std::uint32_t(modes.size());
    connector.count_props = std::uint32_t(properties.ids().size());
    connector.encoder_id = card_.routed() ? id::encoder : 0;
    connector.connector_type = DRM_MODE_CONNECTOR_HDMIA;
    connector.connector_type_id = 1;
    constexpr std::uint32_t isConnected = 1, isDisconnected = 2, unknownSubpixels = 1;
    connector.connection = connected ? isConnected : isDisconnected;
    connector.mm_width = connected ? card_.description().widthMm : 0;
    connector.mm_height = connected ? card_.description().heightMm : 0;
    connector.subpixel = unknownSubpixels;
    call.store(connector);
    return 0;
}

int CardHandle::getPlaneResources(IoctlCall& call) {
    auto planes = call.load<drm_mode_get_plane_res>();
    std::vector<std::uint32_t> ids;
    if (universalPlanes_)
        ids.push_back(id::plane);
    replyList(call, 0, ids);
    planes.count_planes = std::uint32_t(ids.size());
    call.store(planes);
    return 0;
}

int CardHandle::getPlane(IoctlCall& call) {
    auto plane = call.load<drm_mode_get_plane>();
    if (plane.plane_id != id::plane)
        return -ENOENT;
    const std::vector<std::uint32_t> formats = {DRM_FORMAT_XRGB8888, DRM_FORMAT_NV12};
    replyList(call, 0, formats);
    const Crtc& crtc = card_.crtc();
    plane.crtc_id = crtc.on() ? id::crtc : 0;
    plane.fb_id = crtc.on() ? crtc.latest()->id : 0;
    plane.possible_crtcs = 1;
    plane.gamma_size = 0;
    plane.count_format_types = std::uint32_t(formats.size());
    call.store(plane);
    return 0;
}

int CardHandle::objectGetProperties(IoctlCall& call) {
    auto query = call.load<drm_mode_obj_get_properties>();
    static const PropertyValues none{{}};
    const PropertyValues* properties = nullptr;
    std::uint32_t type = DRM_MODE_OBJECT_ANY;
    switch (query.obj_id) {
        case id::plane:
            properties = &card_.planeProperties();
            type = DRM_MODE_OBJECT_PLANE;
            break;
        case id::crtc:
            properties = &none;
            type = DRM_MODE_OBJECT_CRTC;
            break;
        case id::connector:
            properties = &card_.connectorProperties();
            type = DRM_MODE_OBJECT_CONNECTOR;
            break;
        case id::encoder:
            return -EINVAL;  // an object without a place for properties
        default:
            return -ENOENT;
    }
    if (query.obj_type != DRM_MODE_OBJECT_ANY && query.obj_type != type)
        return -ENOENT;
    replyList(call, 0, properties->ids());
    replyList(call, 1, properties->values());
    query.count_props = std::uint32_t(properties->ids().size());
    call.store(query);
    return 0;
}

int CardHandle::getProperty(IoctlCall& call) {
    auto query = call.load<drm_mode_get_property>();
    const Property* property = findProperty(query.prop_id);
    if (property == nullptr)
        return -ENOENT;
    std::memset(query.name, 0, sizeof query.name);
    std::strncpy(query.name, property->name, sizeof query.name - 1);
    query.flags = property->flags;
    std::vector<drm_mode_property_enum> names;
    for (std::size_t i = 0; i < property->names.size(); ++i) {
        drm_mode_property_enum item{};
        item.value = property->values[i];
        std::strncpy(item.name, property->names[i].c_str(), sizeof item.name - 1);
        names.push_back(item);
    }
    replyList(call, 0, property->values);
    replyList(call, 1, names);
    query.count_values = std::uint32_t(property->values.size());
    query.count_enum_blobs = std::uint32_t(names.size());
    call.store(query);
    return 0;
}

int CardHandle::getPropertyBlob(IoctlCall& call) {
    auto query = call.load<drm_mode_get_blob>();
    const std::vector<std::uint8_t>* blob = card_.edidBlob(query.blob_id);
    if (blob == nullptr)
        return -ENOENT;
    if (query.length == blob->size())
        replyList(call, 0, *blob);
    query.length = std::uint32_t(blob->size());
    call.store(query);
    return 0;
}

int CardHandle::setProperty(IoctlCall& call) {
    const auto wanted = call.load<drm_mode_connector_set_property>();
    if (wanted.connector_id != id::connector)
        return -ENOENT;
    return card_.setConnectorProperty(wanted.prop_id, wanted.value);
}

int CardHandle::objectSetProperty(IoctlCall& call) {
    const auto wanted = call.load<drm_mode_obj_set_property>();
    const bool any = wanted.obj_type == DRM_MODE_OBJECT_ANY;
    if (wanted.obj_id == id::connector && (any || wanted.obj_type == DRM_MODE_OBJECT_CONNECTOR))
        return card_.setConnectorProperty(wanted.prop_id, wanted.value);
    // Plane and CRTC have nothing that can be set; the encoder has no properties at all.
    const bool known =
        (wanted.obj_id == id::plane && (any || wanted.obj_type == DRM_MODE_OBJECT_PLANE)) ||
        (wanted.obj_id == id::crtc && (any || wanted.obj_type == DRM_MODE_OBJECT_CRTC)) ||
        (wanted.obj_id == id::encoder && (any || wanted.obj_type == DRM_MODE_OBJECT_ENCODER));
    return known ? -EINVAL : -ENOENT;
}

}  // namespace board
