#include "board/daemon/jsonfields.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cmath>
#include <cstdio>

namespace board {

namespace {

std::string quoted(const std::string& text) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.String(text.data(), rapidjson::SizeType(text.size()));
    return {buffer.GetString(), buffer.GetSize()};
}

}  // namespace

JsonFields& JsonFields::add(const char* key, const std::string& text) {
    return addRaw(key, quoted(text));
}

JsonFields& JsonFields::add(const char* key, double number) {
    char text[64];
    std::snprintf(text, sizeof text, "%.3f", std::isfinite(number) ? number : 0.0);
    return addRaw(key, text);
}

JsonFields& JsonFields::addRaw(const char* key, const std::string& json) {
    members_ += (members_.empty() ? "" : ", ") + quoted(key) + ": " + json;
    return *this;
}

}  // namespace board
