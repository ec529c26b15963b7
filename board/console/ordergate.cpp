#include "board/console/ordergate.h"

#include "board/daemon/jsonfields.h"
#include "board/daemon/jsonreader.h"
#include "board/daemon/orderwords.h"

#include <algorithm>
#include <cstring>

namespace board::console {

namespace {

constexpr std::size_t longestText = 128;

// What is not here is refused: whatever writes or reads files, ends programs or takes a path.
constexpr const char* allowedWords[] = {
    "plug",        "unplug",        "stall",        "resume",       "recording",  "payload",
    "payload-mix", "payload-fault", "encoded-size", "press",        "release",    "hold",
    "inputs",      "ptz",           "told",         "modes",        "flips",      "lose-flip",
    "clock-error", "xrun",          "suspend",      "grant",        "open-fails", "hear",
    "figures",     "figures-reset", "fail",         "faults-clear", "park",       "unpark",
    "parks",       "clock-step",    "state",        "catalogue",
};

// Names of devices, keys, calls, threads: no slash, no dot at the beginning, nothing unprintable.
bool plainWord(const std::string& text) {
    constexpr char allowed[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-:.";
    return !text.empty() && text.size() <= longestText && text.front() != '.' &&
           text.find_first_not_of(allowed) == std::string::npos;
}

std::string readText(const std::string& field, const rapidjson::Value& value) {
    if (!value.IsString())
        throw OrderRefused("\"" + field + "\" must be a text");
    std::string text(value.GetString(), value.GetStringLength());
    if (!plainWord(text))
        throw OrderRefused("\"" + field + "\" has characters that no name has, or too many");
    return text;
}

bool isFrequency(const std::string& text) {
    return !text.empty() && text.size() <= 6 &&
           text.find_first_not_of("0123456789") == std::string::npos;
}

// What stands for a recording or a sound without being a file.
bool isGenerator(const std::string& word, const std::string& name) {
    const auto isOneOf = [&name](std::initializer_list<const char*> names) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    if (word == "recording")
        return isOneOf({"field:red", "field:green", "field:blue", "field:grey", "field:bars"});
    if (word == "hear")
        return isOneOf({"sweep", "clicks", "noise", "ramp", "silence"}) ||
               (name.compare(0, 5, "tone:") == 0 && isFrequency(name.substr(5)));
    return false;
}

void readObject(const std::string& body, rapidjson::Document& document) {
    try {
        parseJson(body, "order", document);
        const JsonObject once(JsonPlace(document, "order"));  // no field stands there twice
    } catch (const std::exception& error) {
        throw OrderRefused(error.what());
    }
}

const wire::OrderWord& readWord(const rapidjson::Value& order) {
    const auto found = order.FindMember("order");
    if (found == order.MemberEnd())
        throw OrderRefused("\"order\" is missing");
    const std::string name = readText("order", found->value);
    const wire::OrderWord* word = findOrderWord(name);
    if (word == nullptr || !OrderGate::allows(name))
        throw OrderRefused("\"" + name + "\" is not an order for the page");
    return *word;
}

void refuseUnknown(const rapidjson::Value& order, const std::vector<OrderField>& fields) {
    for (const auto& member : order.GetObject()) {
        const std::string name(member.name.GetString(), member.name.GetStringLength());
        const bool known =
            name == "order" || std::any_of(fields.begin(), fields.end(), [&](const OrderField& f) {
                return f.kind != '@' && f.name == name;
            });
        if (!known)
            throw OrderRefused("a field of the order is not known");
    }
}

// As a whole number, or a name in its place ("EIO", "all").
void addNumber(JsonFields& composed, const std::string& field, const rapidjson::Value& value) {
    if (value.IsInt64())
        composed.addRaw(field.c_str(), std::to_string(value.GetInt64()));
    else if (value.IsString())
        composed.add(field.c_str(), readText(field, value));
    else
        throw OrderRefused("\"" + field + "\" must be a whole number");
}

}  // namespace

bool OrderGate::allows(const std::string& word) {
    return std::any_of(std::begin(allowedWords), std::end(allowedWords),
                       [&word](const char* allowed) { return word == allowed; });
}

std::string OrderGate::description(const std::string& word, const rapidjson::Value& value) const {
    std::string name = readText("description", value);
    const bool known = isGenerator(word, name) ||
                       (word != "recording" && word != "hear" && names_().count(name) != 0);
    if (!known)
        throw OrderRefused("\"" + name + "\" is not in the catalogue");
    return name;
}

std::string OrderGate::compose(const std::string& body) const {
    rapidjson::Document order;
    readObject(body, order);
    const wire::OrderWord& word = readWord(order);
    const std::vector<OrderField> fields = orderFields(word);
    refuseUnknown(order, fields);
    JsonFields composed;
    composed.add("order", word.name);
    for (const OrderField& field : fields) {
        const auto found = order.FindMember(field.name.c_str());
        if (found == order.MemberEnd()) {
            if (!field.optional)
                throw OrderRefused("\"" + field.name + "\" is missing");
        } else if (field.kind == '#') {
            addNumber(composed, field.name, found->value);
        } else if (field.kind == '%') {
            composed.add(field.name.c_str(), description(word.name, found->value));
        } else {
            composed.add(field.name.c_str(), readText(field.name, found->value));
        }
    }
    return composed.object() + "\n";
}

}  // namespace board::console
