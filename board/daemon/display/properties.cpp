#include "board/daemon/display/properties.h"

#include <drm_mode.h>

#include <algorithm>
#include <cerrno>

namespace board {

namespace {

Property percent(std::uint32_t propertyId, const char* name, std::uint64_t start) {
    return {propertyId, name, DRM_MODE_PROP_RANGE, {0, 100}, {}, start};
}

const std::vector<Property>& allProperties() {
    constexpr std::uint32_t immutable = DRM_MODE_PROP_IMMUTABLE;
    constexpr std::uint32_t choice = DRM_MODE_PROP_ENUM;
    static const std::vector<Property> properties = {
        {id::edid, "EDID", immutable | DRM_MODE_PROP_BLOB, {}, {}, 0},
        {id::dpms, "DPMS", choice, {0, 1, 2, 3}, {"On", "Standby", "Suspend", "Off"}, 0},
        {id::linkStatus, "link-status", choice, {0, 1}, {"Good", "Bad"}, 0},
        {id::nonDesktop, "non-desktop", immutable | DRM_MODE_PROP_RANGE, {0, 1}, {}, 0},
        {id::planeType, "type", immutable | choice, {0, 1, 2}, {"Overlay", "Primary", "Cursor"}, 1},
        // None starts at the middle, so that a client's setting to the middle is seen.
        percent(id::brightness, "brightness", 40),
        percent(id::contrast, "contrast", 60),
        percent(id::saturation, "saturation", 45),
        percent(id::hue, "hue", 55),
        {id::hdmiOutputFormat,
         "hdmi_output_format",
         choice,
         {0, 1, 2, 3},
         {"rgb", "ycbcr444", "ycbcr422", "ycbcr420"},
         0},
    };
    return properties;
}

}  // namespace

bool Property::allows(std::uint64_t value) const {
    if ((flags & DRM_MODE_PROP_RANGE) != 0)
        return value >= values[0] && value <= values[1];
    return std::find(values.begin(), values.end(), value) != values.end();
}

const Property* findProperty(std::uint32_t propertyId) {
    for (const Property& property : allProperties()) {
        if (property.id == propertyId)
            return &property;
    }
    return nullptr;
}

PropertyValues::PropertyValues(const std::vector<std::uint32_t>& propertyIds) {
    for (const std::uint32_t propertyId : propertyIds)
        items_.emplace_back(propertyId, findProperty(propertyId)->start);
}

std::vector<std::uint32_t> PropertyValues::ids() const {
    std::vector<std::uint32_t> result;
    for (const auto& item : items_)
        result.push_back(item.first);
    return result;
}

std::vector<std::uint64_t> PropertyValues::values() const {
    std::vector<std::uint64_t> result;
    for (const auto& item : items_)
        result.push_back(item.second);
    return result;
}

bool PropertyValues::has(std::uint32_t propertyId) const {
    return std::any_of(items_.begin(), items_.end(),
                       [&](const auto& item) { return item.first == propertyId; });
}

std::uint64_t PropertyValues::get(std::uint32_t propertyId) const {
    for (const auto& item : items_) {
        if (item.first == propertyId)
            return item.second;
    }
    return 0;
}

int PropertyValues::set(std::uint32_t propertyId, std::uint64_t value) {
    if (!has(propertyId))
        return -EINVAL;
    const Property& property = *findProperty(propertyId);
    if ((property.flags & DRM_MODE_PROP_IMMUTABLE) != 0 || !property.allows(value))
        return -EINVAL;
    force(propertyId, value);
    return 0;
}

void PropertyValues::force(std::uint32_t propertyId, std::uint64_t value) {
    for (auto& item : items_) {
        if (item.first == propertyId)
            item.second = value;
    }
}

}  // namespace board
