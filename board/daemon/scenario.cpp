#include "board/daemon/scenario.h"

#include "board/daemon/descriptions.h"
#include "board/daemon/jsonfields.h"
#include "board/daemon/jsonreader.h"
#include "board/daemon/sessionfile.h"
#include "board/protocol/mappedpaths.h"

#include <algorithm>
#include <filesystem>
#include <iterator>

namespace board {

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t mostClockError = 100000;  // ppm
constexpr std::size_t mostInputs = 16;
constexpr char plainInput[] = "remote";
constexpr char plainDisplay[] = "synthetic-1080p60";

std::string& scenarioFolder() {
    static std::string folder = BOARD_SCENARIO_FOLDER;
    return folder;
}

std::string listOfNames(const std::string& kind) {
    std::string list;
    for (const std::string& name : knownNames(kind))
        list += (list.empty() ? "" : ", ") + name;
    return list.empty() ? "none" : list;
}

// A path has a slash or ends in .json; everything else is a name in `subfolder`.
std::string find(const char* what, const std::string& nameOrPath, const char* subfolder,
                 const fs::path& relativeTo) {
    const bool isPath =
        nameOrPath.find('/') != std::string::npos || fs::path(nameOrPath).extension() == ".json";
    const fs::path folder = scenarioFolder() + subfolder;
    const fs::path path = isPath ? relativeTo / nameOrPath : folder / (nameOrPath + ".json");
    std::error_code error;
    if (fs::is_regular_file(path, error))
        return path.string();
    throw std::runtime_error(isPath ? path.string() + ": no such " + what + " file"
                                    : "no " + std::string(what) + " \"" + nameOrPath + "\" in " +
                                          folder.string() + "; known: " + listOfNames(subfolder));
}

template <typename Description>
Description load(const std::string& path, Description (*read)(const JsonPlace&)) {
    rapidjson::Document document;
    parseJson(readTextFile(path), path, document);
    return read(JsonPlace(document, path));
}

// A description written in place, or the name or path of one (relative to the scenario's folder).
template <typename Description>
Description resolve(const JsonPlace& place, const char* what, const char* subfolder,
                    Description (*read)(const JsonPlace&)) {
    if (!place.value().IsString())
        return read(place);
    const fs::path here = fs::path(place.source()).parent_path();
    std::string path;
    try {
        path = find(what, place.text(4095), subfolder, here);
    } catch (const std::runtime_error& error) {
        place.fail(error.what());
    }
    return load(path, read);
}

bool isMapped(const fs::path& path) {
    if (path != path.lexically_normal() || !path.has_filename())
        return false;
    return std::any_of(
        std::begin(wire::mappedPaths), std::end(wire::mappedPaths), [&path](const fs::path& top) {
            return std::mismatch(top.begin(), top.end(), path.begin(), path.end()).first ==
                   top.end();
        });
}

void readFiles(const JsonPlace& place, Scenario& scenario) {
    const JsonObject checked(place);
    for (const auto& member : place.value().GetObject()) {
        const std::string path = member.name.GetString();
        const JsonPlace item = place.member(member.value, path);
        if (!isMapped(path))
            item.fail("not one of the paths that lead into the run folder");
        scenario.files[path] = item.text(4095);
    }
}

void readSoundCards(JsonObject& object, Scenario& scenario) {
    const auto card = [](const JsonPlace& place, bool& has, SoundDescription& description) {
        has = !place.isNull();
        if (has)
            description = resolve(place, "sound card", "/sound", readSound);
    };
    object.with("microphone",
                [&](const JsonPlace& p) { card(p, scenario.hasMicrophone, scenario.microphone); });
    object.with("output",
                [&](const JsonPlace& p) { card(p, scenario.hasOutput, scenario.output); });
    object.with("microphonePlugged",
                [&](const JsonPlace& p) { scenario.microphonePlugged = p.boolean(); });
    object.with("outputPlugged", [&](const JsonPlace& p) { scenario.outputPlugged = p.boolean(); });
    object.with("microphoneCard",
                [&](const JsonPlace& p) { scenario.microphoneCard = unsigned(p.integer(1, 7)); });
    object.with("microphoneClock_ppm", [&](const JsonPlace& p) {
        scenario.microphoneClock_ppm = std::int32_t(p.integer(-mostClockError, mostClockError));
    });
    object.with("outputClock_ppm", [&](const JsonPlace& p) {
        scenario.outputClock_ppm = std::int32_t(p.integer(-mostClockError, mostClockError));
    });
    object.with("hears", [&](const JsonPlace& p) { scenario.hears = p.text(4095); });
}

// A second device of the same name is "remote2".
void readInputs(const JsonPlace& place, std::vector<InputDescription>& inputs) {
    for (const JsonPlace& item : place.items(mostInputs)) {
        InputDescription input = resolve(item, "input device", "/inputs", readInput);
        const std::string name = input.name;
        const auto taken = [&](const InputDescription& other) { return other.name == input.name; };
        for (unsigned n = 2; std::any_of(inputs.begin(), inputs.end(), taken); ++n)
            input.name = name + std::to_string(n);
        inputs.push_back(std::move(input));
    }
}

// A camera's description in the place of a scenario.
Scenario aroundCamera(const JsonPlace& place) {
    Scenario scenario;
    scenario.camera = readCamera(place);
    scenario.name = scenario.camera.name;
    scenario.display = loadDisplay(findDisplay(plainDisplay));
    scenario.inputs = {loadInput(findInput(plainInput))};
    // A camera of the data folder goes by its name.
    const fs::path file = fs::absolute(place.source()).lexically_normal();
    const fs::path known = fs::absolute(scenarioFolder() + "/cameras").lexically_normal();
    scenario.document =
        JsonFields()
            .add("name", scenario.name)
            .add("camera", file.parent_path() == known ? file.stem().string() : file.string())
            .add("display", plainDisplay)
            .addRaw("inputs", "[\"" + std::string(plainInput) + "\"]")
            .object();
    return scenario;
}

Scenario readScenario(const JsonPlace& place) {
    JsonObject object(place);
    if (object.has("formats") && !object.has("camera"))
        return aroundCamera(place);
    Scenario scenario;
    scenario.name = object.get("name").text(200);
    const JsonPlace camera = object.get("camera");
    const JsonPlace display = object.get("display");
    scenario.hasCamera = !camera.isNull();
    scenario.hasDisplay = !display.isNull();
    if (scenario.hasCamera)
        scenario.camera = resolve(camera, "camera", "/cameras", readCamera);
    if (scenario.hasDisplay)
        scenario.display = resolve(display, "display", "/displays", readDisplay);
    object.with("cameraPlugged", [&](const JsonPlace& p) { scenario.cameraPlugged = p.boolean(); });
    object.with("displayPlugged",
                [&](const JsonPlace& p) { scenario.displayPlugged = p.boolean(); });
    object.with("cameraNumber",
                [&](const JsonPlace& p) { scenario.cameraNumber = unsigned(p.integer(0, 255)); });
    readSoundCards(object, scenario);
    object.with("recording", [&](const JsonPlace& p) { scenario.camera.recording = p.text(4095); });
    object.with("inputs", [&](const JsonPlace& p) { readInputs(p, scenario.inputs); });
    object.with("speed",
                [&](const JsonPlace& p) { scenario.speed = std::uint32_t(p.integer(1, 10)); });
    object.with("files", [&](const JsonPlace& p) { readFiles(p, scenario); });
    object.with("orders", [&](const JsonPlace& p) { scenario.orders = readTimedOrders(p); });
    object.finish();
    scenario.document = movableScenario(place);
    return scenario;
}

}  // namespace

Scenario loadScenario(const std::string& path) {
    return load(path, readScenario);
}

CameraDescription loadCamera(const std::string& path) {
    return load(path, readCamera);
}

DisplayDescription loadDisplay(const std::string& path) {
    return load(path, readDisplay);
}

SoundDescription loadSound(const std::string& path) {
    return load(path, readSound);
}

InputDescription loadInput(const std::string& path) {
    return load(path, readInput);
}

std::string findScenario(const std::string& nameOrPath) {
    std::error_code error;
    std::string camera = scenarioFolder() + "/cameras/" + nameOrPath + ".json";
    const bool isName = nameOrPath.find('/') == std::string::npos;
    if (isName && !fs::exists(scenarioFolder() + "/" + nameOrPath + ".json", error) &&
        fs::is_regular_file(camera, error))
        return camera;
    try {
        return find("scenario", nameOrPath, "", "");
    } catch (const std::runtime_error& failure) {
        if (!isName)
            throw;
        throw std::runtime_error(std::string(failure.what()) +
                                 "; and every camera's name: " + listOfNames("/cameras"));
    }
}

std::string findCamera(const std::string& nameOrPath) {
    return find("camera", nameOrPath, "/cameras", "");
}

std::string findDisplay(const std::string& nameOrPath) {
    return find("display", nameOrPath, "/displays", "");
}

std::string findSound(const std::string& nameOrPath) {
    return find("sound card", nameOrPath, "/sound", "");
}

std::string findInput(const std::string& nameOrPath) {
    return find("input device", nameOrPath, "/inputs", "");
}

std::vector<std::string> knownNames(const std::string& kind) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(scenarioFolder() + kind, error))
        if (entry.path().extension() == ".json")
            names.push_back(entry.path().stem().string());
    std::sort(names.begin(), names.end());
    return names;
}

void setScenarioFolder(const std::string& folder) {
    scenarioFolder() = folder;
}

}  // namespace board
