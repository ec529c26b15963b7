// Any bytes as the preset file. The first byte of an input says what is done with the rest.
#include "control/camera/obsbot.h"
#include "tests/fuzz/fuzzbench.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace {

using fuzzbench::require;

constexpr char presetNode[] = "/etc/uvc_param.conf";
constexpr std::size_t saveLimit = 2048, recallLimit = 4096;

int controlsSet = 0;

rapidjson::Document parsed(const std::string& content) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(content.c_str());
    return document;
}

// A number may be too large to be written again.
bool canBeWritten(const rapidjson::Document& document) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    return document.Accept(writer);
}

// A saving keeps the file, or makes one of it that holds the view, or null of one that is damaged.
void checkSaved(int result, const std::string& before, const std::string& key) {
    const std::string after = fuzzbench::readFile();
    const bool fits = before.size() < saveLimit;
    const rapidjson::Document old = parsed(before);
    const bool usable =
        old.HasParseError() || old.IsNull() || (old.IsObject() && canBeWritten(old));
    require(result == (fits && usable ? 0 : -1), "result of a saving");
    if (result == -1) {
        require(after == before, "a file that was to be left alone");
        return;
    }
    if (old.HasParseError()) {
        require(after == "null", "what becomes of a damaged file");
        return;
    }
    rapidjson::Document now = parsed(after);
    require(now.IsObject(), "what was written");
    bool found = false;
    for (const auto& member : now.GetObject()) {
        found = found || (member.name == key.c_str() && member.value.IsObject() &&
                          member.value.MemberCount() >= 6);
    }
    require(found, "the view in what was written");
}

void checkRecalled(int result, const std::string& before) {
    require(fuzzbench::readFile() == before, "the file after a recall");
    require(result == (before.size() < recallLimit ? 0 : -1), "result of a recall");
    require(controlsSet <= 6, "number of controls");
    require(controlsSet == 0 || parsed(before).IsObject(), "controls of a file that is no object");
}

}  // namespace

int ObsBot::setControl(UVC_PARAM_E param, int value, char percent) {
    require(percent == 0 && param >= UVC_PAN_ABSOLUTE && param <= UVC_TILT_SPEED, "a control");
    require(controls[static_cast<std::size_t>(param)].value != value, "a control that differs");
    controls[static_cast<std::size_t>(param)].value = value;
    ++controlsSet;
    return 1;
}

extern "C" {

int LLVMFuzzerInitialize(int*, char***) {
    fuzzbench::standFor(presetNode);
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const int what = data[0] & 7;
    const std::string content(reinterpret_cast<const char*>(data) + 1, size - 1);
    fuzzbench::writeFile(content.data(), content.size());
    static ObsBot bot("");
    bot.controls = {};
    controlsSet = 0;
    if (what == 0 || what == 7) {
        bot.currentView = what == 0 ? 1 : 6;
        checkSaved(bot.save_view_data(), content, what == 0 ? "uvc0_view1" : "uvc0_view6");
    } else {
        bot.currentView = 0;
        checkRecalled(bot.change_view(static_cast<char>(what)), content);
    }
    return 0;
}

}  // extern "C"
