// Orders about the remote, and what the camera makes of it.
#include "tests/support/board.h"
#include "tests/support/ordertext.h"

namespace support {

namespace {

std::string keyOrder(const char* action, const std::string& key, const std::string& device) {
    OrderText text(action);
    text.with("key", key);
    if (!device.empty()) {
        text.with("device", device);
    }
    return text.text();
}

}  // namespace

std::uint64_t Board::press(const std::string& key, const std::string& device) {
    return count(order(keyOrder("press", key, device)), "time_ns");
}

std::uint64_t Board::release(const std::string& key, const std::string& device) {
    return count(order(keyOrder("release", key, device)), "time_ns");
}

void Board::hold(const std::string& key, Milliseconds duration, const std::string& device) {
    OrderText text("hold");
    text.with("key", key).with("ms", std::int64_t(duration.count()));
    if (!device.empty()) {
        text.with("device", device);
    }
    order(text.text());
}

PtzFigures Board::ptz() {
    const rapidjson::Document answer = order(OrderText("ptz").text());
    const auto whole = [&](const char* name) { return member(answer, name).GetInt(); };
    PtzFigures figures;
    figures.pan = whole("pan");
    figures.tilt = whole("tilt");
    figures.zoom = whole("zoom");
    figures.panSpeed = whole("panSpeed");
    figures.tiltSpeed = whole("tiltSpeed");
    figures.zoomSpeed = whole("zoomSpeed");
    figures.asleep = member(answer, "asleep").GetBool();
    figures.tracking = member(answer, "tracking").GetBool();
    return figures;
}

namespace {

Told readTold(const rapidjson::Value& item) {
    Told told;
    told.time_ns = count(item, "time_ns");
    told.result = member(item, "result").GetInt();
    if (item.HasMember("control")) {
        told.control = member(item, "control").GetString();
        told.asked = member(item, "asked").GetInt();
        told.given = member(item, "given").GetInt();
    } else {
        told.unit = member(item, "unit").GetUint();
        told.selector = member(item, "selector").GetUint();
        told.bytes = member(item, "bytes").GetString();
    }
    return told;
}

}  // namespace

std::string Told::text() const {
    const std::string failed = result == 0 ? "" : " error " + std::to_string(result);
    if (!control.empty()) {
        return control + "=" + std::to_string(asked) + failed;
    }
    std::string shown = bytes;
    while (shown.size() > 2 && shown.compare(shown.size() - 2, 2, "00") == 0) {
        shown.resize(shown.size() - 2);
    }
    return std::to_string(unit) + "/" + std::to_string(selector) + ":" + shown + failed;
}

std::vector<Told> Board::told(std::uint64_t from) {
    std::vector<Told> all;
    for (;;) {
        const rapidjson::Document answer =
            order(OrderText("told").with("from", std::int64_t(from)).text());
        const auto items = member(answer, "told").GetArray();
        if (items.Empty()) {
            return all;
        }
        for (const rapidjson::Value& item : items) {
            all.push_back(readTold(item));
        }
        from = count(answer, "next");
    }
}

InputFigures Board::input(const std::string& device) {
    const rapidjson::Document answer = order(OrderText("inputs").with("device", device).text());
    InputFigures figures;
    for (const rapidjson::Value& input : member(answer, "inputs").GetArray()) {
        figures.device = member(input, "device").GetString();
        figures.node = member(input, "node").GetString();
        for (const rapidjson::Value& key : member(input, "keysDown").GetArray()) {
            figures.keysDown.push_back(key.GetString());
        }
        for (const rapidjson::Value& led : member(input, "ledsLit").GetArray()) {
            figures.ledsLit.push_back(led.GetUint());
        }
        for (const rapidjson::Value& write : member(input, "writes").GetArray()) {
            figures.writes.push_back({count(write, "time_ns"), member(write, "type").GetUint(),
                                      member(write, "code").GetUint(),
                                      member(write, "value").GetInt()});
        }
    }
    return figures;
}

}  // namespace support
