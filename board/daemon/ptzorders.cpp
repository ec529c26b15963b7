#include "board/daemon/ptzorders.h"

#include <cstdio>
#include <stdexcept>

namespace board {

namespace {

constexpr std::size_t mostAtOnce = 2000;  // in one answer

const Camera& cameraOf(Rig& rig) {
    if (rig.camera() == nullptr)
        throw std::runtime_error("there is no camera");
    return *rig.camera();
}

std::string hexadecimal(const std::vector<std::uint8_t>& bytes) {
    std::string text;
    char two[3];
    for (const std::uint8_t byte : bytes) {
        std::snprintf(two, sizeof two, "%02x", byte);
        text += two;
    }
    return text;
}

JsonFields describe(const Told& told) {
    JsonFields fields;
    fields.add("time_ns", std::uint64_t(told.time_ns));
    fields.addRaw("result", std::to_string(told.result));
    if (!told.isControl) {
        fields.add("unit", std::uint32_t(told.unit));
        fields.add("selector", std::uint32_t(told.selector));
        return fields.add("bytes", hexadecimal(told.bytes));
    }
    char id[16];
    std::snprintf(id, sizeof id, "0x%08x", told.id);
    fields.add("control", id).addRaw("asked", std::to_string(told.asked));
    return fields.addRaw("given", std::to_string(told.given));
}

// A long list comes in pieces: `next` is where to go on.
JsonFields told(JsonObject& order, Rig& rig) {
    std::uint64_t from = 0;
    order.with("from", [&](const JsonPlace& p) { from = std::uint64_t(p.integer(0, INT64_MAX)); });
    const std::vector<Told> all = cameraOf(rig).told().since(from);
    std::string list;
    std::uint64_t next = from;
    for (std::size_t i = 0; i < all.size() && i < mostAtOnce; ++i, ++next)
        list += (list.empty() ? "" : ", ") + describe(all[i]).object();
    JsonFields fields;
    fields.add("first", from).add("next", next);
    return fields.addRaw("told", "[" + list + "]");
}

JsonFields ptz(Rig& rig) {
    const PtzState state = cameraOf(rig).ptz();
    JsonFields fields;
    const auto number = [&](const char* key, std::int64_t value) {
        fields.addRaw(key, std::to_string(value));
    };
    number("pan", state.pan);
    number("tilt", state.tilt);
    number("zoom", state.zoom);
    number("panSpeed", state.panSpeed);
    number("tiltSpeed", state.tiltSpeed);
    number("zoomSpeed", state.zoomSpeed);
    fields.add("asleep", state.asleep).add("tracking", state.tracking);
    return fields.add("moves", state.moves);
}

}  // namespace

void addPtzOrders(Orders& orders, Rig& rig) {
    orders.addImmediate("ptz", [&rig](JsonObject&) { return ptz(rig); });
    orders.addImmediate("told", [&rig](JsonObject& order) { return told(order, rig); });
}

}  // namespace board
