#include "board/console/soundfigures.h"

#include <string>

namespace board::console {

namespace {

// A card's direction while it runs, else null.
const rapidjson::Value* running(const rapidjson::Document& figures, const char* card,
                                const char* direction) {
    const auto device = figures.FindMember(card);
    if (device == figures.MemberEnd() || !device->value.IsObject())
        return nullptr;
    const auto stream = device->value.FindMember(direction);
    if (stream == device->value.MemberEnd() || !stream->value.IsObject())
        return nullptr;
    const auto state = stream->value.FindMember("state");
    const bool runs = state != stream->value.MemberEnd() && state->value.IsString() &&
                      std::string(state->value.GetString()) == "RUNNING";
    return runs ? &stream->value : nullptr;
}

double numberOf(const rapidjson::Value& object, const char* name) {
    const auto found = object.FindMember(name);
    return found != object.MemberEnd() && found->value.IsNumber() ? found->value.GetDouble() : 0;
}

double milliseconds(const rapidjson::Value& stream, double frames) {
    const double rate_Hz = numberOf(stream, "rate");
    return rate_Hz > 0 ? 1000 * frames / rate_Hz : 0;
}

}  // namespace

SoundOnTheWay soundOnTheWay(const rapidjson::Document& figures) {
    SoundOnTheWay sound;
    const rapidjson::Value* heard = running(figures, "microphone", "capture");
    const rapidjson::Value* played = running(figures, "output", "playback");
    if (played == nullptr)
        return sound;
    const double queued = numberOf(*played, "queuedFrames");
    sound.queued_ms = milliseconds(*played, queued);
    if (heard == nullptr)
        return sound;
    const double read_ms =
        milliseconds(*heard, numberOf(*heard, "frames") - numberOf(*heard, "unreadFrames"));
    const double written_ms = milliseconds(*played, numberOf(*played, "frames") + queued);
    sound.onTheWay_ms = read_ms > written_ms ? read_ms - written_ms : 0;
    return sound;
}

}  // namespace board::console
