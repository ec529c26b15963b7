#include "board/daemon/ptzdescription.h"

#include "board/daemon/descriptions.h"

#include <set>

namespace board {

namespace {

constexpr std::size_t mostUnits = 16, mostSelectors = 255;
constexpr std::int64_t fastest = 10000000;

std::vector<std::uint8_t> readBytes(const JsonPlace& place, std::size_t most) {
    const std::string text = place.text(2 * most);
    if (text.empty() || text.size() % 2 != 0 ||
        text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        place.fail("must be bytes as hexadecimal text");
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < text.size(); i += 2)
        bytes.push_back(std::uint8_t(std::stoul(text.substr(i, 2), nullptr, 16)));
    return bytes;
}

UnitControl readUnitControl(const JsonPlace& place) {
    JsonObject object(place);
    UnitControl control;
    control.selector = std::uint8_t(object.get("selector").integer(1, UINT8_MAX));
    control.bytes = std::uint16_t(object.get("bytes").integer(1, UINT16_MAX));
    object.with("does", [&](const JsonPlace& p) {
        const std::string role = p.text(32);
        if (role != "power" && role != "tracking")
            p.fail("must be power or tracking");
        control.role = role == "power" ? UnitRole::power : UnitRole::tracking;
    });
    if (control.role == UnitRole::power) {
        control.sleep = readBytes(object.get("sleep"), control.bytes);
        control.wake = readBytes(object.get("wake"), control.bytes);
    }
    object.finish();
    return control;
}

}  // namespace

std::vector<ExtensionUnitDescription> readUnits(const JsonPlace& place) {
    std::vector<ExtensionUnitDescription> units;
    std::set<std::uint8_t> ids;
    for (const JsonPlace& item : place.items(mostUnits)) {
        JsonObject object(item);
        ExtensionUnitDescription unit;
        unit.id = std::uint8_t(object.get("id").integer(1, UINT8_MAX));
        if (!ids.insert(unit.id).second)
            item.fail("a unit with this id stands there already");
        for (const JsonPlace& control : object.get("controls").items(mostSelectors))
            unit.controls.push_back(readUnitControl(control));
        object.finish();
        units.push_back(std::move(unit));
    }
    return units;
}

PtzDescription readPtz(const JsonPlace& place) {
    JsonObject object(place);
    PtzDescription ptz;
    ptz.moves = true;
    const auto rate = [&](const char* key, std::uint32_t& value) {
        object.with(key, [&](const JsonPlace& p) { value = std::uint32_t(p.integer(1, fastest)); });
    };
    rate("panPerSecond", ptz.panPerSecond);
    rate("tiltPerSecond", ptz.tiltPerSecond);
    rate("zoomPerSecond", ptz.zoomPerSecond);
    object.with("viewPercent",
                [&](const JsonPlace& p) { ptz.viewPercent = std::uint32_t(p.integer(10, 100)); });
    object.finish();
    return ptz;
}

}  // namespace board
