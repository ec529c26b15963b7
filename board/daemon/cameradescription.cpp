#include "board/daemon/descriptions.h"

#include <linux/videodev2.h>

#include <cstdio>

namespace board {

namespace {

// The fields of the kernel's structures, without their final zero.
constexpr std::size_t nameLength = 31, driverLength = 15;
constexpr std::size_t mostEntries = 1024;
constexpr std::int64_t largestSide = 16384;
constexpr std::int64_t largestImage = 1 << 28;
constexpr std::int64_t int32Lowest = INT32_MIN, int32Highest = INT32_MAX;

std::uint32_t readVersion(const JsonPlace& place) {
    unsigned major = 0, minor = 0, patch = 0;
    char rest = 0;
    const std::string text = place.text(32);
    const int found = std::sscanf(text.c_str(), "%3u.%3u.%3u%c", &major, &minor, &patch, &rest);
    if (found != 3 || major > 255 || minor > 255 || patch > 255)
        place.fail("must be a version as in \"6.5.7\"");
    return major << 16 | minor << 8 | patch;
}

std::uint32_t readFourcc(const JsonPlace& place) {
    const std::string text = place.text(4);
    if (text.size() != 4)
        place.fail("must have four characters");
    for (const char c : text)
        if (c < ' ' || c > '~')
            place.fail("must be made of plain characters");
    return v4l2_fourcc(std::uint32_t(text[0]), std::uint32_t(text[1]), std::uint32_t(text[2]),
                       std::uint32_t(text[3]));
}

Fraction readInterval(const JsonPlace& place) {
    const auto numbers = place.items(2);
    if (numbers.size() != 2)
        place.fail("must be [numerator, denominator] in seconds");
    Fraction interval;
    interval.numerator = std::uint32_t(numbers[0].integer(1, UINT32_MAX));
    interval.denominator = std::uint32_t(numbers[1].integer(1, UINT32_MAX));
    return interval;
}

CameraSize readSize(const JsonPlace& place) {
    JsonObject object(place);
    CameraSize size;
    size.width = std::uint32_t(object.get("width").integer(1, largestSide));
    size.height = std::uint32_t(object.get("height").integer(1, largestSide));
    for (const JsonPlace& interval : object.get("intervals").items(mostEntries))
        size.intervals.push_back(readInterval(interval));
    object.finish();
    return size;
}

Encoding readEncoding(const JsonPlace& place) {
    JsonObject object(place);
    Encoding encoding;
    object.with("subsampling", [&](const JsonPlace& p) {
        const std::string text = p.text(8);
        if (text != "4:2:0" && text != "4:2:2")
            p.fail("must be 4:2:0 or 4:2:2");
        encoding.fullChromaHeight = text == "4:2:2";
    });
    object.with("quality",
                [&](const JsonPlace& p) { encoding.quality = unsigned(p.integer(1, 100)); });
    object.with("bitRate", [&](const JsonPlace& p) {
        encoding.bitRate = std::uint32_t(p.integer(10000, 200000000));
    });
    object.with("keyFrameDistance", [&](const JsonPlace& p) {
        encoding.keyFrameDistance = unsigned(p.integer(1, 600));
    });
    object.with("bFrames",
                [&](const JsonPlace& p) { encoding.bFrames = unsigned(p.integer(0, 4)); });
    object.with("parameterSetsEvery", [&](const JsonPlace& p) {
        encoding.parameterSetsEvery = unsigned(p.integer(0, 1000000));
    });
    object.with("loopFrames", [&](const JsonPlace& p) {
        encoding.loopFrames = std::uint32_t(p.integer(192, 65536));
    });
    object.finish();
    return encoding;
}

CameraFormat readFormat(const JsonPlace& place) {
    JsonObject object(place);
    CameraFormat format;
    format.fourcc = readFourcc(object.get("fourcc"));
    format.description = object.get("description").text(nameLength);
    object.with("compressed", [&](const JsonPlace& p) { format.compressed = p.boolean(); });
    object.with("encoding", [&](const JsonPlace& p) { format.encoding = readEncoding(p); });
    object.with("imageBytes", [&](const JsonPlace& p) {
        format.imageBytes = std::uint32_t(p.integer(1, largestImage));
    });
    for (const JsonPlace& size : object.get("sizes").items(mostEntries))
        format.sizes.push_back(readSize(size));
    object.finish();
    return format;
}

ControlType readType(const JsonPlace& place) {
    static const std::map<std::string, ControlType> types = {
        {"int", ControlType::integer},        {"bool", ControlType::boolean},
        {"menu", ControlType::menu},          {"intmenu", ControlType::integerMenu},
        {"button", ControlType::button},      {"bitmask", ControlType::bitmask},
        {"class", ControlType::controlClass},
    };
    const auto found = types.find(place.text(32));
    if (found == types.end())
        place.fail("must be int, bool, menu, intmenu, button, bitmask or class");
    return found->second;
}

std::uint32_t readFlags(const JsonPlace& place) {
    static const std::map<std::string, std::uint32_t> names = {
        {"disabled", V4L2_CTRL_FLAG_DISABLED},
        {"grabbed", V4L2_CTRL_FLAG_GRABBED},
        {"read-only", V4L2_CTRL_FLAG_READ_ONLY},
        {"update", V4L2_CTRL_FLAG_UPDATE},
        {"inactive", V4L2_CTRL_FLAG_INACTIVE},
        {"slider", V4L2_CTRL_FLAG_SLIDER},
        {"write-only", V4L2_CTRL_FLAG_WRITE_ONLY},
        {"volatile", V4L2_CTRL_FLAG_VOLATILE},
        {"has-payload", V4L2_CTRL_FLAG_HAS_PAYLOAD},
        {"execute-on-write", V4L2_CTRL_FLAG_EXECUTE_ON_WRITE},
        {"modify-layout", V4L2_CTRL_FLAG_MODIFY_LAYOUT},
    };
    std::uint32_t flags = 0;
    for (const JsonPlace& item : place.items(names.size())) {
        const auto found = names.find(item.text(32));
        if (found == names.end())
            item.fail("\"" + item.text(32) + "\" is no control flag");
        flags |= found->second;
    }
    return flags;
}

void readMenu(const JsonPlace& place, CameraControl& control) {
    const JsonObject checked(place);
    for (const auto& member : place.value().GetObject()) {
        const JsonPlace item = place.member(member.value, member.name.GetString());
        std::int64_t index = 0, number = 0;
        if (!parseInteger(member.name.GetString(), index) || index < control.minimum ||
            index > control.maximum)
            item.fail("a menu's keys are numbers from min to max");
        const std::string text = item.text(nameLength);
        if (control.type == ControlType::integerMenu && !parseInteger(text, number))
            item.fail("an intmenu's entries are numbers as text");
        control.menu[index] = text;
    }
}

void readRange(JsonObject& object, CameraControl& control) {
    // A class and a button have no value; a bool's range is known.
    const bool plain =
        control.type == ControlType::controlClass || control.type == ControlType::button;
    if (plain) {
        control.step = 0;
        return;
    }
    if (control.type == ControlType::boolean) {
        control.maximum = 1;
        object.with("min", [](const JsonPlace& p) { p.integer(0, 0); });
        object.with("max", [](const JsonPlace& p) { p.integer(1, 1); });
        object.with("step", [](const JsonPlace& p) { p.integer(1, 1); });
    } else {
        // A bit mask of 32 bits does not fit into a signed number of 32 bits.
        const std::int64_t highest =
            control.type == ControlType::bitmask ? UINT32_MAX : int32Highest;
        control.minimum = object.get("min").integer(int32Lowest, highest);
        control.maximum = object.get("max").integer(control.minimum, highest);
        object.with("step", [&](const JsonPlace& p) { control.step = p.integer(0, highest); });
    }
    // Cameras exist that report a default or a value outside their own range.
    control.defaultValue = object.get("default").integer(int32Lowest, UINT32_MAX);
    control.value = control.defaultValue;
    object.with("value",
                [&](const JsonPlace& p) { control.value = p.integer(int32Lowest, UINT32_MAX); });
}

CameraControl readControl(const JsonPlace& place) {
    JsonObject object(place);
    CameraControl control;
    control.id = std::uint32_t(object.get("id").integerOrText(1, 0x0fffffff));
    control.name = object.get("name").text(nameLength);
    control.type = readType(object.get("type"));
    readRange(object, control);
    object.with("flags", [&](const JsonPlace& p) { control.flags = readFlags(p); });
    const bool hasMenu =
        control.type == ControlType::menu || control.type == ControlType::integerMenu;
    if (hasMenu)
        readMenu(object.get("menu"), control);
    object.finish();
    return control;
}

}  // namespace

CameraDescription readCamera(const JsonPlace& place) {
    JsonObject object(place);
    CameraDescription camera;
    camera.name = object.get("name").text(200);
    camera.card = object.get("card").text(nameLength);
    object.with("driver", [&](const JsonPlace& p) { camera.driver = p.text(driverLength); });
    object.with("busInfo", [&](const JsonPlace& p) { camera.busInfo = p.text(nameLength); });
    object.with("version", [&](const JsonPlace& p) { camera.version = readVersion(p); });
    object.with("recording", [&](const JsonPlace& p) { camera.recording = p.text(4095); });
    object.with("ptz", [&](const JsonPlace& p) { camera.ptz = readPtz(p); });
    object.with("extensionUnits", [&](const JsonPlace& p) { camera.units = readUnits(p); });
    // Where the listing comes from: for the reader of the file, nothing for the board.
    object.with("source", [](const JsonPlace& p) { p.text(4095); });
    for (const JsonPlace& format : object.get("formats").items(mostEntries))
        camera.formats.push_back(readFormat(format));
    std::set<std::uint32_t> ids;
    for (const JsonPlace& item : object.get("controls").items(mostEntries)) {
        camera.controls.push_back(readControl(item));
        if (!ids.insert(camera.controls.back().id).second)
            item.fail("a control with this id stands there already");
    }
    object.finish();
    return camera;
}

std::string fourccText(std::uint32_t fourcc) {
    std::string text;
    for (unsigned shift = 0; fourcc != 0 && shift < 32; shift += 8)
        text += char(fourcc >> shift & 0x7f);
    return text;
}

}  // namespace board
