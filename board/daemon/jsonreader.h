// Strict reading of JSON: every wrong thing is one line that names the file and the place in it.
#pragma once

#include <rapidjson/document.h>

#include <cstdint>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace board {

// A value at a place ("$.formats[0].width"). Refers to the document and must not outlive it. All
// members throw std::runtime_error when the value is not what is asked for.
class JsonPlace {
  public:
    JsonPlace(const rapidjson::Value& value, std::string source, std::string path = "$")
        : value_(&value), source_(std::move(source)), path_(std::move(path)) {}

    [[noreturn]] void fail(const std::string& what) const;

    const rapidjson::Value& value() const { return *value_; }
    bool isNull() const { return value_->IsNull(); }
    std::string text(std::size_t longest) const;  // UTF-8, no NUL inside
    bool boolean() const;
    std::int64_t integer(std::int64_t lowest, std::int64_t highest) const;
    // An integer, or one as text: "0x00980900", "42".
    std::int64_t integerOrText(std::int64_t lowest, std::int64_t highest) const;
    std::vector<JsonPlace> items(std::size_t most) const;  // an array's
    JsonPlace member(const rapidjson::Value& value, const std::string& key) const {
        return {value, source_, path_ + "." + key};
    }
    const std::string& source() const { return source_; }

  private:
    const rapidjson::Value* value_;
    std::string source_;  // file name, or who sent it
    std::string path_;
};

// An object's members: asked for by name, and whatever nobody asked for is an error.
class JsonObject {
  public:
    explicit JsonObject(JsonPlace place);  // throws for another type and for repeated keys

    const JsonPlace& place() const { return place_; }
    bool has(const char* key);
    JsonPlace get(const char* key);  // throws when absent
    // Runs `use` when the key is there.
    void with(const char* key, const std::function<void(const JsonPlace&)>& use);
    void finish() const;  // throws when there are keys that nobody asked for

  private:
    JsonPlace place_;
    std::set<std::string> asked_;
};

// The whole text as JSON. Throws with `source`, line and column.
void parseJson(const std::string& text, const std::string& source, rapidjson::Document& document);
// A whole file, 4 MB at most. Throws when it cannot be read.
std::string readTextFile(const std::string& path);
// An integer as a person writes it ("12", "-3", "0x1f"); false when it is none or too large.
bool parseInteger(const std::string& text, std::int64_t& number);

}  // namespace board
