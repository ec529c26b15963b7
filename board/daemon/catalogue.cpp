#include "board/daemon/catalogue.h"

#include "board/daemon/scenario.h"

#include <algorithm>
#include <exception>
#include <string>
#include <vector>

namespace board {

namespace {

constexpr std::size_t shownModes = 4;

// As a JSON list: no text twice, `most` of them.
std::string listOf(const std::vector<std::string>& texts, std::size_t most) {
    std::vector<std::string> listed;
    std::string list;
    for (const std::string& text : texts) {
        if (listed.size() == most || std::find(listed.begin(), listed.end(), text) != listed.end())
            continue;
        listed.push_back(text);
        list += (list.empty() ? "\"" : ", \"") + text + "\"";
    }
    return "[" + list + "]";
}

JsonFields cameraEntry(const std::string& name) {
    const CameraDescription camera = loadCamera(findCamera(name));
    std::vector<std::string> formats;
    for (const CameraFormat& format : camera.formats)
        formats.push_back(fourccText(format.fourcc));
    JsonFields fields;
    fields.add("name", name).add("card", camera.card);
    return fields.addRaw("formats", listOf(formats, formats.size()));
}

JsonFields displayEntry(const std::string& name) {
    const DisplayDescription display = loadDisplay(findDisplay(name));
    std::vector<std::string> modes;
    for (const DisplayMode& mode : display.modes)
        modes.push_back(std::to_string(mode.hdisplay) + "x" + std::to_string(mode.vdisplay) + "@" +
                        std::to_string(mode.vrefresh_Hz));
    return JsonFields().add("name", name).addRaw("modes", listOf(modes, shownModes));
}

JsonFields soundEntry(const std::string& name) {
    const SoundDescription card = loadSound(findSound(name));
    return JsonFields()
        .add("name", name)
        .add("card", card.card)
        .add("playback", !card.playback.settings.empty())
        .add("capture", !card.capture.settings.empty());
}

JsonFields inputEntry(const std::string& name) {
    loadInput(findInput(name));
    return JsonFields().add("name", name);
}

std::string entriesOf(const char* kind, JsonFields (*entry)(const std::string& name)) {
    std::string list;
    for (const std::string& name : knownNames(kind)) {
        try {
            const std::string text = entry(name).object();
            list += (list.empty() ? "" : ", ") + text;
        } catch (const std::exception&) {
            continue;  // a file that somebody is writing: plugging it tells what is wrong
        }
    }
    return "[" + list + "]";
}

}  // namespace

JsonFields readCatalogue() {
    JsonFields fields;
    fields.addRaw("cameras", entriesOf("/cameras", cameraEntry));
    fields.addRaw("displays", entriesOf("/displays", displayEntry));
    fields.addRaw("sound", entriesOf("/sound", soundEntry));
    return fields.addRaw("inputs", entriesOf("/inputs", inputEntry));
}

}  // namespace board
