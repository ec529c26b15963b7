#include "board/daemon/deviceorders.h"

#include "board/daemon/soundorders.h"

#include <filesystem>
#include <memory>
#include <stdexcept>

namespace board {

namespace fs = std::filesystem;

namespace {

constexpr unsigned mostCopies = 64;
constexpr std::size_t longestPath = 4095;
constexpr std::int64_t framesPatience_ns = 30000000000;

enum class Named { camera, display, microphone, output };

Named readDevice(const JsonPlace& place) {
    constexpr const char* names[] = {"camera", "display", "microphone", "output"};
    const std::string device = place.text(32);
    for (int i = 0; i < 4; ++i)
        if (device == names[i])
            return Named(i);
    place.fail("must be camera, display, microphone, output or an input device");
}

// A device that can stand still: the camera, or a sound card (null: the camera).
SoundCard* standsStill(const JsonPlace& place, Rig& rig) {
    switch (readDevice(place)) {
        case Named::display:
            place.fail("the display cannot do that");
        case Named::camera:
            if (rig.camera() == nullptr)
                throw std::runtime_error("there is no camera");
            return nullptr;
        default:
            return &soundCardOf(place, rig);
    }
}

JsonFields stall(JsonObject& order, Rig& rig, bool stalled) {
    SoundCard* card = standsStill(order.get("device"), rig);
    if (card == nullptr) {
        rig.camera()->stall(stalled);
        return {};
    }
    card->stall(stalled);
    if (!stalled)
        card->wake(true);
    return {};
}

std::string absolutePath(const JsonPlace& place) {
    std::string path = place.text(longestPath);
    if (path.empty() || path.front() != '/')
        place.fail("must be an absolute path");
    return path;
}

// First or second of two words.
bool readChoice(const JsonPlace& place, const char* first, const char* second) {
    const std::string word = place.text(32);
    if (word != first && word != second)
        place.fail(std::string("must be ") + first + " or " + second);
    return word == first;
}

std::string optionalText(JsonObject& order, const char* key) {
    std::string text;
    order.with(key, [&](const JsonPlace& place) { text = place.text(longestPath); });
    return text;
}

// A device's "error line, empty on success" as an order's end.
std::function<void(const std::string&)> finishing(const OrderDone& done) {
    return [done](const std::string& error) {
        OrderResult result;
        result.error = error;
        done(result);
    };
}

// Input devices have names of their own; the word for a further one comes with a description.
bool namesInput(JsonObject& order, Rig& rig, const std::string& description) {
    const std::string device = order.get("device").text(32);
    if (rig.inputs().has(device))
        return true;
    return !description.empty() && device != "camera" && device != "display" &&
           device != "microphone" && device != "output";
}

JsonFields plug(JsonObject& order, Rig& rig) {
    const std::string description = optionalText(order, "description");
    if (namesInput(order, rig, description))
        return JsonFields().add("node", rig.plugInput(order.get("device").text(32), description));
    switch (readDevice(order.get("device"))) {
        case Named::camera:
            return JsonFields().add("node", rig.plugCamera(description));
        case Named::display:
            rig.plugDisplay(description);
            return {};
        case Named::microphone:
            return JsonFields().add("card", rig.plugSound(true, description));
        case Named::output:
            return JsonFields().add("card", rig.plugSound(false, description));
    }
    return {};
}

JsonFields unplug(JsonObject& order, Rig& rig) {
    if (namesInput(order, rig, "")) {
        rig.unplugInput(order.get("device").text(32));
        return {};
    }
    switch (readDevice(order.get("device"))) {
        case Named::camera:
            rig.unplugCamera();
            break;
        case Named::display:
            rig.unplugDisplay();
            break;
        case Named::microphone:
            rig.unplugSound(true);
            break;
        case Named::output:
            rig.unplugSound(false);
            break;
    }
    return {};
}

JsonFields recording(JsonObject& order, Rig& rig) {
    const std::string name = order.get("name").text(longestPath);
    std::error_code error;
    if (name.compare(0, 6, "field:") != 0 && !fs::is_regular_file(name, error))
        order.get("name").fail(name + ": no such file");
    if (rig.camera() == nullptr)
        throw std::runtime_error("there is no camera");
    rig.camera()->setRecording(name);
    return {};
}

JsonFields payload(JsonObject& order, Rig& rig) {
    const auto bytes = std::uint32_t(order.get("bytes").integer(0, UINT32_MAX));
    const auto count = unsigned(order.get("count").integer(1, INT32_MAX));
    if (rig.camera() == nullptr)
        throw std::runtime_error("there is no camera");
    rig.camera()->setPayload(bytes, count);
    return {};
}

Camera& anyCamera(Rig& rig) {
    if (rig.camera() == nullptr)
        throw std::runtime_error("there is no camera");
    return *rig.camera();
}

void expectNone(const std::string& error) {
    if (!error.empty())
        throw std::runtime_error(error);
}

std::uint32_t optionalSeed(JsonObject& order) {
    std::uint32_t seed = 1;
    order.with("seed", [&](const JsonPlace& p) { seed = std::uint32_t(p.integer(0, UINT32_MAX)); });
    return seed;
}

JsonFields payloadFault(JsonObject& order, Rig& rig) {
    const JsonPlace kind = order.get("kind");
    const std::optional<PayloadFault> fault = payloadFaultNamed(kind.text(32));
    if (!fault)
        kind.fail("must be one of " + payloadFaultNames());
    const auto count = unsigned(order.get("count").integer(0, INT32_MAX));
    expectNone(anyCamera(rig).planFault(*fault, count, optionalSeed(order)));
    return {};
}

JsonFields payloadMix(JsonObject& order, Rig& rig) {
    const auto perMille = unsigned(order.get("permille").integer(0, 1000));
    anyCamera(rig).mixFaults(perMille, optionalSeed(order));
    return {};
}

JsonFields payloads(JsonObject& order, Rig& rig) {
    Camera& camera = anyCamera(rig);
    if (readChoice(order.get("action"), "start", "stop"))
        expectNone(camera.startPayloads(absolutePath(order.get("path"))));
    else
        expectNone(camera.stopPayloads());
    return {};
}

JsonFields encodedSize(JsonObject& order, Rig& rig) {
    const auto width = std::uint32_t(order.get("width").integer(16, 4096));
    const auto height = std::uint32_t(order.get("height").integer(16, 4096));
    expectNone(anyCamera(rig).changeEncodedSize(width, height));
    return {};
}

void record(JsonObject& order, Display& display, const OrderDone& done) {
    if (!readChoice(order.get("action"), "start", "stop")) {
        display.stopRecording(finishing(done));
        return;
    }
    finishing(done)(display.startRecording(absolutePath(order.get("path"))));
}

// A screen on which nothing flips gives no pictures: the order ends all the same.
void frames(JsonObject& order, Rig& rig, const OrderDone& done) {
    const std::string folder = absolutePath(order.get("folder"));
    const auto count = unsigned(order.get("count").integer(1, mostCopies));
    fs::create_directories(folder);
    EventLoop& loop = rig.board().loop();
    const auto deadline = std::make_shared<EventLoop::TimerId>(0);
    const auto once = [&loop, deadline, done](const std::string& error) {
        if (*deadline == 0)
            return;
        loop.cancel(*deadline);
        *deadline = 0;
        finishing(done)(error);
    };
    *deadline = loop.at(EventLoop::now_ns() + framesPatience_ns, [once, count] {
        once("the screen did not show " + std::to_string(count) + " pictures within 30 s");
    });
    rig.display().dumpFrames(folder, count, once);
}

void addCameraOrders(Orders& orders, Rig& rig) {
    orders.addImmediate("stall", [&rig](JsonObject& order) { return stall(order, rig, true); });
    orders.addImmediate("resume", [&rig](JsonObject& order) { return stall(order, rig, false); });
    orders.addImmediate("recording", [&rig](JsonObject& o) { return recording(o, rig); });
    orders.addImmediate("payload", [&rig](JsonObject& o) { return payload(o, rig); });
    orders.addImmediate("payload-fault", [&rig](JsonObject& o) { return payloadFault(o, rig); });
    orders.addImmediate("payload-mix", [&rig](JsonObject& o) { return payloadMix(o, rig); });
    orders.addImmediate("payloads", [&rig](JsonObject& o) { return payloads(o, rig); });
    orders.addImmediate("encoded-size", [&rig](JsonObject& o) { return encodedSize(o, rig); });
}

void addDisplayOrders(Orders& orders, Rig& rig) {
    orders.addImmediate("modes", [&rig](JsonObject& order) {
        rig.changeDisplay(order.get("description").text(longestPath));
        return JsonFields();
    });
    orders.addImmediate("flips", [&rig](JsonObject& order) {
        rig.display().holdFlips(readChoice(order.get("action"), "hold", "go"));
        return JsonFields();
    });
    orders.addImmediate("lose-flip", [&rig](JsonObject&) {
        rig.display().loseFlipEvent();
        return JsonFields();
    });
    orders.add("picture", [&rig](JsonObject& order, const OrderDone& done) {
        rig.display().picture(absolutePath(order.get("path")), finishing(done));
    });
    orders.add("record", [&rig](JsonObject& order, const OrderDone& done) {
        record(order, rig.display(), done);
    });
    orders.add("frames",
               [&rig](JsonObject& order, const OrderDone& done) { frames(order, rig, done); });
    orders.addImmediate("figures-reset", [&rig](JsonObject&) {
        rig.display().resetFigures();
        return JsonFields();
    });
}

}  // namespace

void addDeviceOrders(Orders& orders, Rig& rig) {
    orders.addImmediate("plug", [&rig](JsonObject& order) { return plug(order, rig); });
    orders.addImmediate("unplug", [&rig](JsonObject& order) { return unplug(order, rig); });
    addCameraOrders(orders, rig);
    addDisplayOrders(orders, rig);
}

JsonFields cameraFigures(Camera& camera) {
    const CameraFigures figures = camera.figures();
    JsonFields fields;
    fields.add("delivered", figures.delivered).add("lost", figures.lost);
    fields.add("streaming", figures.streaming).add("fourcc", fourccText(figures.fourcc));
    fields.add("width", figures.width).add("height", figures.height);
    fields.add("interval", std::to_string(figures.interval.numerator) + "/" +
                               std::to_string(figures.interval.denominator));
    fields.add("marked", figures.marked);
    fields.add("openHandles", camera.openHandles());
    return fields;
}

JsonFields displayFigures(const Display& display) {
    const DisplayFigures figures = display.figures();
    JsonFields fields;
    fields.add("mode", figures.mode).add("flips", figures.flips).add("shown", figures.shown);
    fields.add("repeated", figures.repeated).add("skipped", figures.skipped);
    fields.add("outOfOrder", figures.outOfOrder).add("overwritten", figures.overwritten);
    fields.add("lastFrame", figures.lastFrame);
    fields.add("latencyMedian_ms", figures.latencyMedian_ms);
    fields.add("latencyP95_ms", figures.latencyP95_ms);
    fields.add("latencyP99_ms", figures.latencyP99_ms);
    return fields;
}

}  // namespace board
