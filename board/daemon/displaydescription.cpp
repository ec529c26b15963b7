#include "board/daemon/descriptions.h"
#include "board/edid/edidmodes.h"

#include <drm_mode.h>

namespace board {

namespace {

// drm_mode_modeinfo::name without its final zero.
constexpr std::size_t modeNameLength = 31;
constexpr std::size_t edidBlock = 128, mostEdidBlocks = 256;

struct NamedBit {
    const char* name;
    std::uint32_t bit;
};

constexpr NamedBit flagNames[] = {
    {"phsync", DRM_MODE_FLAG_PHSYNC},       {"nhsync", DRM_MODE_FLAG_NHSYNC},
    {"pvsync", DRM_MODE_FLAG_PVSYNC},       {"nvsync", DRM_MODE_FLAG_NVSYNC},
    {"interlace", DRM_MODE_FLAG_INTERLACE}, {"doublescan", DRM_MODE_FLAG_DBLSCAN},
    {"csync", DRM_MODE_FLAG_CSYNC},         {"doubleclock", DRM_MODE_FLAG_DBLCLK},
};
constexpr NamedBit typeNames[] = {
    {"preferred", DRM_MODE_TYPE_PREFERRED},
    {"driver", DRM_MODE_TYPE_DRIVER},
    {"user", DRM_MODE_TYPE_USERDEF},
};

// A number, or a list of names.
template <std::size_t Count>
std::uint32_t readBits(const JsonPlace& place, const NamedBit (&names)[Count]) {
    if (!place.value().IsArray())
        return std::uint32_t(place.integerOrText(0, UINT32_MAX));
    std::uint32_t bits = 0;
    for (const JsonPlace& item : place.items(Count)) {
        const std::string name = item.text(32);
        std::uint32_t bit = 0;
        for (const NamedBit& known : names)
            if (name == known.name)
                bit = known.bit;
        if (bit == 0)
            item.fail("\"" + name + "\" is not known here");
        bits |= bit;
    }
    return bits;
}

void readTimings(JsonObject& object, DisplayMode& mode) {
    const auto number = [&](const char* key, std::int64_t lowest) {
        return std::uint16_t(object.get(key).integer(lowest, UINT16_MAX));
    };
    mode.hdisplay = number("hdisplay", 1);
    mode.hsyncStart = number("hsyncStart", mode.hdisplay);
    mode.hsyncEnd = number("hsyncEnd", mode.hsyncStart);
    mode.htotal = number("htotal", mode.hsyncEnd);
    mode.vdisplay = number("vdisplay", 1);
    mode.vsyncStart = number("vsyncStart", mode.vdisplay);
    mode.vsyncEnd = number("vsyncEnd", mode.vsyncStart);
    mode.vtotal = number("vtotal", mode.vsyncEnd);
    object.with("hskew",
                [&](const JsonPlace& p) { mode.hskew = std::uint16_t(p.integer(0, UINT16_MAX)); });
    object.with("vscan",
                [&](const JsonPlace& p) { mode.vscan = std::uint16_t(p.integer(0, UINT16_MAX)); });
}

DisplayMode readMode(const JsonPlace& place) {
    JsonObject object(place);
    DisplayMode mode;
    mode.clock_kHz = std::uint32_t(object.get("clock").integer(1, 10000000));
    readTimings(object, mode);
    mode.vrefresh_Hz = std::uint32_t(object.get("vrefresh").integer(1, 1000));
    mode.name = std::to_string(mode.hdisplay) + "x" + std::to_string(mode.vdisplay);
    object.with("name", [&](const JsonPlace& p) { mode.name = p.text(modeNameLength); });
    object.with("flags", [&](const JsonPlace& p) { mode.flags = readBits(p, flagNames); });
    object.with("type", [&](const JsonPlace& p) { mode.type = readBits(p, typeNames); });
    object.finish();
    return mode;
}

int digit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// One text, or a list of texts that are put together: lines of a dump.
std::vector<std::uint8_t> readEdid(const JsonPlace& place) {
    std::string digits;
    if (place.value().IsArray()) {
        for (const JsonPlace& line : place.items(4096))
            digits += line.text(edidBlock * 2);
    } else {
        digits = place.text(edidBlock * mostEdidBlocks * 2);
    }
    std::vector<std::uint8_t> edid;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        const int high = digit(digits[i]), low = digit(digits[i + 1]);
        if (high < 0 || low < 0)
            place.fail("is not hexadecimal at digit " + std::to_string(i));
        edid.push_back(std::uint8_t(high << 4 | low));
    }
    if (digits.size() % (edidBlock * 2) != 0)
        place.fail("must be blocks of 128 bytes");
    return edid;
}

}  // namespace

DisplayDescription readDisplay(const JsonPlace& place) {
    JsonObject object(place);
    DisplayDescription display;
    display.name = object.get("name").text(200);
    object.with("connector", [](const JsonPlace& p) {
        if (p.text(32) != "HDMI-A-1")
            p.fail("the board has one connector, HDMI-A-1");
    });
    // Where the listing comes from: for the reader of the file, nothing for the board.
    object.with("source", [](const JsonPlace& p) { p.text(4095); });
    object.with("widthMm",
                [&](const JsonPlace& p) { display.widthMm = std::uint32_t(p.integer(0, 100000)); });
    object.with("heightMm", [&](const JsonPlace& p) {
        display.heightMm = std::uint32_t(p.integer(0, 100000));
    });
    object.with("possibleCrtcs", [&](const JsonPlace& p) {
        display.possibleCrtcs = std::uint32_t(p.integerOrText(0, UINT32_MAX));
    });
    for (const JsonPlace& mode : object.get("modes").items(1024))
        display.modes.push_back(readMode(mode));
    object.with("edid", [&](const JsonPlace& p) { display.edid = readEdid(p); });
    object.finish();
    if (display.modes.empty())
        display.modes = modesFromEdid(display.edid);
    return display;
}

}  // namespace board
