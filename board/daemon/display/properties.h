// The properties of the card's objects: what they are called, what they may be set to.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace board {

// Object and property ids share one number space; frame buffers and blobs get numbers after these.
namespace id {
constexpr std::uint32_t edid = 1, dpms = 2, linkStatus = 5, nonDesktop = 6, planeType = 8;
constexpr std::uint32_t brightness = 21, contrast = 22, saturation = 23, hue = 24;
constexpr std::uint32_t hdmiOutputFormat = 25;
constexpr std::uint32_t plane = 30, crtc = 31, encoder = 32, connector = 33, firstFree = 34;
}  // namespace id

struct Property {
    std::uint32_t id;
    const char* name;
    std::uint32_t flags;                // DRM_MODE_PROP_...
    std::vector<std::uint64_t> values;  // range: smallest, largest; enum: the numbers
    std::vector<std::string> names;     // enum: a name for each number
    std::uint64_t start;

    bool allows(std::uint64_t value) const;
};

const Property* findProperty(std::uint32_t propertyId);  // null when there is none

// The current properties of one object, in the order in which they are listed.
class PropertyValues {
  public:
    explicit PropertyValues(const std::vector<std::uint32_t>& propertyIds);

    std::vector<std::uint32_t> ids() const;
    std::vector<std::uint64_t> values() const;
    bool has(std::uint32_t propertyId) const;
    std::uint64_t get(std::uint32_t propertyId) const;  // 0 for one that it has not
    // What a client sets: 0 or a negative errno.
    int set(std::uint32_t propertyId, std::uint64_t value);
    // What the card itself changes, immutable ones included.
    void force(std::uint32_t propertyId, std::uint64_t value);

  private:
    std::vector<std::pair<std::uint32_t, std::uint64_t>> items_;
};

}  // namespace board
