// Members of a JSON object, composed one after the other.
#pragma once

#include <cstdint>
#include <string>

namespace board {

class JsonFields {
  public:
    JsonFields& add(const char* key, const std::string& text);
    JsonFields& add(const char* key, const char* text) { return add(key, std::string(text)); }
    JsonFields& add(const char* key, bool value) { return addRaw(key, value ? "true" : "false"); }
    JsonFields& add(const char* key, double number);  // three digits after the point
    JsonFields& add(const char* key, std::uint64_t number) {
        return addRaw(key, std::to_string(number));
    }
    JsonFields& add(const char* key, std::uint32_t number) {
        return add(key, std::uint64_t(number));
    }
    JsonFields& add(const char* key, const JsonFields& object) {
        return addRaw(key, object.object());
    }
    // `json` is a finished value.
    JsonFields& addRaw(const char* key, const std::string& json);

    std::string object() const { return "{" + members_ + "}"; }

  private:
    std::string members_;
};

}  // namespace board
