// Six views of the camera, kept in a JSON file.
#include "control/camera/obsbot.h"
#include "control/task/logline.h"

#include <fcntl.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string_view>

namespace {

constexpr char presetFile[] = "/etc/uvc_param.conf";
constexpr std::string_view freshContent("{\n}\0", 4);  // readers stop at the zero
// A file must stay smaller.
constexpr std::size_t saveBuffer = 2048;
constexpr std::size_t recallBuffer = 4096;

struct Member {
    const char* name;
    UVC_PARAM_E row;
};

// In the order in which they are written and applied.
constexpr Member members[] = {
    {"pan_absolute", UVC_PAN_ABSOLUTE},   {"tilt_absolute", UVC_TILT_ABSOLUTE},
    {"zoom_absolute", UVC_ZOOM_ABSOLUTE}, {"auto_focus", UVC_FOCUS_AUTO},
    {"pan_speed", UVC_PAN_SPEED},         {"tilt_speed", UVC_TILT_SPEED},
};

const char* keyOf(int view) {
    constexpr const char* keys[] = {"uvc0_view1", "uvc0_view2", "uvc0_view3",
                                    "uvc0_view4", "uvc0_view5", "uvc0_view6"};
    return view >= 1 && view <= 6 ? keys[view - 1] : keys[0];
}

bool presetFileExists() {
    return access(presetFile, F_OK) == 0;
}

// False when the file cannot be opened; what cannot be written is not reported.
bool writePresetFile(std::string_view content) {
    const UniqueFd file(open(presetFile, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!file.valid()) {
        return false;
    }
    while (!content.empty()) {
        const ssize_t written = write(file.get(), content.data(), content.size());
        if (written <= 0) {
            break;
        }
        content.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// The file up to its first zero. Nothing when it cannot be read or does not fit, with a zero behind
// it, into `limit` bytes.
std::optional<std::string> readPresetFile(std::size_t limit) {
    const UniqueFd file(open(presetFile, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!file.valid() || fstat(file.get(), &status) == -1 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    std::string text(limit, '\0');
    std::size_t length = 0;
    while (length < limit) {
        const ssize_t got = read(file.get(), text.data() + length, limit - length);
        if (got == -1) {
            return std::nullopt;
        }
        if (got == 0) {
            text.resize(length);
            return text.substr(0, text.find('\0'));
        }
        length += static_cast<std::size_t>(got);
    }
    return std::nullopt;
}

// Without recursion: a file of brackets must not take the stack. Null when it is no JSON.
rapidjson::Document parsed(const std::string& text) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(text.c_str());
    return document;
}

// The view's object; null when it is not there or is something else.
rapidjson::Value* findView(rapidjson::Document& document, const char* key) {
    const auto found = document.FindMember(key);
    const bool usable = found != document.MemberEnd() && found->value.IsObject();
    return usable ? &found->value : nullptr;
}

}  // namespace

int ObsBot::save_view_data() {
    if (!presetFileExists() && !writePresetFile(freshContent)) {
        logOut("Error: Failed to create default profile!");
        return -1;
    }
    const std::optional<std::string> text = readPresetFile(saveBuffer);
    if (!text) {
        return -1;
    }
    rapidjson::Document document = parsed(*text);
    if (!document.HasParseError()) {
        if (document.IsNull()) {  // what became of a damaged file at an earlier save
            document.SetObject();
        }
        if (!document.IsObject()) {
            return -1;
        }
        auto& allocator = document.GetAllocator();
        const char* key = keyOf(currentView);
        rapidjson::Value fresh(rapidjson::kObjectType);
        rapidjson::Value* stored = findView(document, key);
        rapidjson::Value& view = stored != nullptr ? *stored : fresh;
        for (const Member& member : members) {
            const std::int32_t value = controls[member.row].value;
            const auto found = view.FindMember(member.name);
            if (found != view.MemberEnd() && found->value.IsInt()) {
                found->value.SetInt(value);
            } else {
                view.AddMember(rapidjson::StringRef(member.name), value, allocator);
            }
        }
        if (stored == nullptr) {
            document.AddMember(rapidjson::StringRef(key), fresh, allocator);
        }
    }
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    if (!document.Accept(writer)) {
        return -1;  // a number that is read as infinite cannot be written: the text breaks off
                    // there
    }
    writePresetFile({buffer.GetString(), buffer.GetSize()});
    return 0;
}

int ObsBot::change_view(char view) {
    const std::int32_t number = static_cast<unsigned char>(view);  // as the board's compiler has it
    if (number == currentView) {
        logOut("same view no");
        return -1;
    }
    if (!presetFileExists()) {
        currentView = number;
        logOut("no uvc_param file");
        return -1;
    }
    const std::optional<std::string> text = readPresetFile(recallBuffer);
    if (!text) {
        return -1;
    }
    rapidjson::Document document = parsed(*text);
    const rapidjson::Value* stored =
        document.IsObject() ? findView(document, keyOf(number)) : nullptr;
    if (stored != nullptr) {
        for (const Member& member : members) {
            const auto found = stored->FindMember(member.name);
            if (found != stored->MemberEnd() && found->value.IsInt() &&
                found->value.GetInt() != controls[member.row].value) {
                setControl(member.row, found->value.GetInt(), 0);
            }
        }
    }
    currentView = number;
    return 0;
}
