// Orders to the board as JSON, and what its answers have.
#pragma once

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace support {

// {"order": name, ...} written piece by piece.
class OrderText {
  public:
    explicit OrderText(const char* name) {
        writer_.StartObject();
        writer_.Key("order");
        writer_.String(name);
    }
    OrderText& with(const char* key, const std::string& value) {
        writer_.Key(key);
        writer_.String(value.c_str());
        return *this;
    }
    OrderText& with(const char* key, std::int64_t value) {
        writer_.Key(key);
        writer_.Int64(value);
        return *this;
    }
    std::string text() {
        writer_.EndObject();
        return buffer_.GetString();
    }

  private:
    rapidjson::StringBuffer buffer_;
    rapidjson::Writer<rapidjson::StringBuffer> writer_{buffer_};
};

inline const rapidjson::Value& member(const rapidjson::Value& object, const char* name) {
    if (!object.IsObject() || !object.HasMember(name)) {
        throw std::runtime_error(std::string("the board's answer has no \"") + name + "\"");
    }
    return object[name];
}

inline double number(const rapidjson::Value& object, const char* name) {
    return member(object, name).GetDouble();
}

inline std::uint64_t count(const rapidjson::Value& object, const char* name) {
    return member(object, name).GetUint64();
}

}  // namespace support
