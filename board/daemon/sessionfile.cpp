#include "board/daemon/sessionfile.h"

#include "board/daemon/jsonfields.h"
#include "board/daemon/orderwords.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstring>
#include <filesystem>

namespace board {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t mostOrders = 100000;
constexpr std::int64_t longestRun_ms = std::int64_t(7) * 24 * 3600 * 1000;
constexpr std::size_t longestText = 4095;

std::string jsonText(const rapidjson::Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return {buffer.GetString(), buffer.GetSize()};
}

std::string absoluteFile(const std::string& path, const std::string& folder) {
    return fs::absolute(fs::path(folder) / path).lexically_normal().string();
}

bool isDescriptionFile(const std::string& text) {
    return text.find('/') != std::string::npos || fs::path(text).extension() == ".json";
}

bool isMediaFile(const std::string& text) {
    return !text.empty() && text.compare(0, 6, "field:") != 0;
}

bool isSoundFile(const std::string& text) {
    for (const char* made : {"sweep", "clicks", "noise", "ramp", "silence"})
        if (text == made)
            return false;
    return !text.empty() && text.compare(0, 5, "tone:") != 0;
}

// Names and generators stay as they are.
std::string movable(const std::string& text, bool isFile, const std::string& folder) {
    return isFile ? absoluteFile(text, folder) : text;
}

std::string movableField(const wire::OrderWord& word, const std::string& text,
                         const std::string& folder) {
    const bool isFile = std::strcmp(word.name, "recording") == 0 ? isMediaFile(text)
                        : std::strcmp(word.name, "hear") == 0    ? isSoundFile(text)
                                                                 : isDescriptionFile(text);
    return movable(text, isFile, folder);
}

// What an order's field may be at all; whether the board has such a device is seen when it runs.
void checkField(const JsonPlace& place, const OrderField& field) {
    const bool number = place.value().IsNumber();
    if (field.kind == '#' && !number)
        place.text(32);  // "EIO", "all"
    else if (field.kind == ' ' && number)
        place.integer(0, UINT16_MAX);  // a key
    else if (number)
        place.integer(INT64_MIN, INT64_MAX);
    else
        place.text(longestText);
    if (field.kind == '%' && number)
        place.fail("must be a text");
}

TimedOrder readTimedOrder(const JsonPlace& place, std::int64_t notBefore_ms,
                          const std::string& folder) {
    JsonObject object(place);
    TimedOrder timed;
    timed.at_ms = object.get("at_ms").integer(0, longestRun_ms);
    if (timed.at_ms < notBefore_ms)
        object.get("at_ms").fail("is earlier than the order before it");
    const JsonPlace name = object.get("order");
    const wire::OrderWord* word = findOrderWord(name.text(64));
    if (word == nullptr)
        name.fail("unknown order \"" + name.text(64) + "\"; `boardctl help` lists them");
    if (!word->changes)
        name.fail("\"" + name.text(64) + "\" changes nothing of the board and cannot stand here");
    for (const OrderField& field : orderFields(*word))
        if (object.has(field.name.c_str()) || !field.optional)
            checkField(object.get(field.name.c_str()), field);
    object.finish();
    timed.order = plainOrder(object, *word, folder);
    return timed;
}

using Allocator = rapidjson::Document::AllocatorType;

void setText(rapidjson::Value& value, const std::string& text, Allocator& allocator) {
    value.SetString(text.c_str(), rapidjson::SizeType(text.size()), allocator);
}

// `member` of an object, where it is there and a text.
void moveMember(rapidjson::Value& object, const char* member, bool (*isFile)(const std::string&),
                const std::string& folder, Allocator& allocator) {
    if (!object.IsObject())
        return;
    const auto found = object.FindMember(member);
    if (found == object.MemberEnd() || !found->value.IsString())
        return;
    const std::string text = found->value.GetString();
    setText(found->value, movable(text, isFile(text), folder), allocator);
}

// A name or path of a description, or one in place with the files that it names.
void moveDescription(rapidjson::Value& value, const std::string& folder, Allocator& allocator) {
    if (value.IsString()) {
        const std::string text = value.GetString();
        setText(value, movable(text, isDescriptionFile(text), folder), allocator);
        return;
    }
    const auto always = [](const std::string&) { return true; };
    moveMember(value, "stream0", always, folder, allocator);
    moveMember(value, "recording", isMediaFile, "", allocator);
}

}  // namespace

std::vector<TimedOrder> readTimedOrders(const JsonPlace& place) {
    const std::string folder = fs::path(place.source()).parent_path().string();
    std::vector<TimedOrder> orders;
    for (const JsonPlace& item : place.items(mostOrders))
        orders.push_back(readTimedOrder(item, orders.empty() ? 0 : orders.back().at_ms, folder));
    return orders;
}

std::string plainOrder(JsonObject& order, const wire::OrderWord& word, const std::string& folder) {
    JsonFields fields;
    fields.add("order", word.name);
    for (const OrderField& field : orderFields(word)) {
        const char* name = field.name.c_str();
        if (!order.has(name))
            continue;
        const rapidjson::Value& value = order.get(name).value();
        if (field.kind == '%' && value.IsString())
            fields.add(name, movableField(word, value.GetString(), folder));
        else
            fields.addRaw(name, jsonText(value));
    }
    return fields.object();
}

std::string timedOrderText(const TimedOrder& order) {
    return "{\"at_ms\": " + std::to_string(order.at_ms) + ", " + order.order.substr(1);
}

std::string movableScenario(const JsonPlace& place) {
    const std::string folder = fs::path(place.source()).parent_path().string();
    rapidjson::Document scenario;
    Allocator& allocator = scenario.GetAllocator();
    scenario.CopyFrom(place.value(), allocator);
    scenario.RemoveMember("speed");
    scenario.RemoveMember("orders");
    for (auto& member : scenario.GetObject()) {
        const std::string key = member.name.GetString();
        if (key == "camera" || key == "display" || key == "microphone" || key == "output")
            moveDescription(member.value, folder, allocator);
        if (key == "inputs")
            for (rapidjson::Value& input : member.value.GetArray())
                moveDescription(input, folder, allocator);
    }
    // These are as a program of the daemon's folder sees them.
    moveMember(scenario, "recording", isMediaFile, "", allocator);
    moveMember(scenario, "hears", isSoundFile, "", allocator);
    return jsonText(scenario);
}

}  // namespace board
