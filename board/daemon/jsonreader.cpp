#include "board/daemon/jsonreader.h"

#include <rapidjson/error/en.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <system_error>

namespace board {

namespace {

constexpr std::size_t largestFile = 4u << 20;

std::string range(std::int64_t lowest, std::int64_t highest) {
    return std::to_string(lowest) + " to " + std::to_string(highest);
}

}  // namespace

void JsonPlace::fail(const std::string& what) const {
    throw std::runtime_error(source_ + ": " + path_ + ": " + what);
}

std::string JsonPlace::text(std::size_t longest) const {
    if (!value_->IsString())
        fail("must be a text");
    std::string text(value_->GetString(), value_->GetStringLength());
    if (text.size() > longest)
        fail("is longer than " + std::to_string(longest) + " bytes");
    if (text.find('\0') != std::string::npos)
        fail("has a zero character inside");
    return text;
}

bool JsonPlace::boolean() const {
    if (!value_->IsBool())
        fail("must be true or false");
    return value_->GetBool();
}

std::int64_t JsonPlace::integer(std::int64_t lowest, std::int64_t highest) const {
    if (!value_->IsInt64())
        fail("must be a whole number from " + range(lowest, highest));
    const std::int64_t number = value_->GetInt64();
    if (number < lowest || number > highest)
        fail(std::to_string(number) + " is not in " + range(lowest, highest));
    return number;
}

std::int64_t JsonPlace::integerOrText(std::int64_t lowest, std::int64_t highest) const {
    if (!value_->IsString())
        return integer(lowest, highest);
    std::int64_t number = 0;
    if (!parseInteger(text(32), number))
        fail("\"" + text(32) + "\" is not a number");
    if (number < lowest || number > highest)
        fail(text(32) + " is not in " + range(lowest, highest));
    return number;
}

std::vector<JsonPlace> JsonPlace::items(std::size_t most) const {
    if (!value_->IsArray())
        fail("must be a list");
    if (value_->Size() > most)
        fail("has more than " + std::to_string(most) + " entries");
    std::vector<JsonPlace> places;
    for (rapidjson::SizeType i = 0; i < value_->Size(); ++i)
        places.emplace_back((*value_)[i], source_, path_ + "[" + std::to_string(i) + "]");
    return places;
}

JsonObject::JsonObject(JsonPlace place) : place_(std::move(place)) {
    if (!place_.value().IsObject())
        place_.fail("must be an object");
    std::set<std::string> seen;
    for (const auto& member : place_.value().GetObject())
        if (!seen.insert(member.name.GetString()).second)
            place_.fail(std::string("\"") + member.name.GetString() + "\" stands there twice");
}

bool JsonObject::has(const char* key) {
    asked_.insert(key);
    return place_.value().HasMember(key);
}

JsonPlace JsonObject::get(const char* key) {
    if (!has(key))
        place_.fail(std::string("\"") + key + "\" is missing");
    return place_.member(place_.value().FindMember(key)->value, key);
}

void JsonObject::with(const char* key, const std::function<void(const JsonPlace&)>& use) {
    if (has(key))
        use(get(key));
}

void JsonObject::finish() const {
    for (const auto& member : place_.value().GetObject()) {
        if (asked_.count(member.name.GetString()) != 0)
            continue;
        std::string known;
        for (const std::string& key : asked_)
            known += (known.empty() ? "" : ", ") + key;
        place_.fail("unknown key \"" + std::string(member.name.GetString()) +
                    "\"; known: " + known);
    }
}

void parseJson(const std::string& text, const std::string& source, rapidjson::Document& document) {
    // Iterative: a text of nothing but opening brackets must not use up the stack.
    document.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag>(
        text.data(), text.size());
    if (!document.HasParseError())
        return;
    const std::size_t offset = std::min(document.GetErrorOffset(), text.size());
    std::size_t line = 1, column = 1;
    for (std::size_t i = 0; i < offset; ++i) {
        ++column;
        if (text[i] == '\n') {
            ++line;
            column = 1;
        }
    }
    throw std::runtime_error(source + ": line " + std::to_string(line) + ", column " +
                             std::to_string(column) + ": " +
                             rapidjson::GetParseError_En(document.GetParseError()));
}

std::string readTextFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error(path + ": " + std::generic_category().message(errno));
    std::string text(largestFile + 1, '\0');
    file.read(text.data(), std::streamsize(text.size()));
    if (file.bad())
        throw std::runtime_error(path + ": cannot be read");
    text.resize(std::size_t(file.gcount()));
    if (text.size() > largestFile)
        throw std::runtime_error(path + ": is larger than 4 MB");
    return text;
}

bool parseInteger(const std::string& text, std::int64_t& number) {
    const std::size_t first = !text.empty() && text[0] == '-' ? 1 : 0;
    const bool hexadecimal = text.compare(first, 2, "0x") == 0;
    const std::size_t digits = hexadecimal ? first + 2 : first;
    const char* allowed = hexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits >= text.size() || text.find_first_not_of(allowed, digits) != std::string::npos)
        return false;
    errno = 0;
    number = std::strtoll(text.c_str(), nullptr, hexadecimal ? 16 : 10);
    return errno == 0;
}

}  // namespace board
