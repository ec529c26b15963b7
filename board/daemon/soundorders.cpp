#include "board/daemon/soundorders.h"

#include "board/daemon/coreorders.h"

#include <filesystem>
#include <stdexcept>

namespace board {

namespace {

constexpr std::int64_t mostClockError_ppm = 100000;
constexpr std::int64_t highestRate_Hz = 768000, longestPeriod = 1048576;
constexpr std::size_t longestPath = 4095;

JsonFields streamFigures(const SoundFigures& figures, const char* queued) {
    JsonFields fields;
    fields.add("open", figures.open).add("state", figures.state).add("format", figures.format);
    fields.add("rate", figures.rate_Hz).add("channels", figures.channels);
    fields.add("periodFrames", figures.periodFrames).add("bufferFrames", figures.bufferFrames);
    fields.add("frames", figures.frames).add("periods", figures.periods);
    fields.add("starts", figures.starts).add("xruns", figures.xruns);
    return fields.add("missing", figures.missing).add(queued, figures.queuedFrames);
}

JsonFields suspend(JsonObject& order, SoundCard& card) {
    bool brief = false;
    order.with("action", [&](const JsonPlace& place) {
        const std::string action = place.text(32);
        if (action != "hold" && action != "brief")
            place.fail("must be hold or brief");
        brief = action == "brief";
    });
    card.suspend();
    if (brief)
        card.wake(false);
    return {};
}

JsonFields failOpenings(JsonObject& order, SoundCard& card) {
    unsigned count = 1;
    order.with("count", [&](const JsonPlace& p) { count = unsigned(p.integer(0, INT32_MAX)); });
    const JsonPlace error = order.get("errno");
    // 0: openings succeed again.
    if (!error.value().IsString() && error.integer(0, INT32_MAX) == 0)
        card.clearFailures();
    else
        card.failOpenings(readErrno(error), count);
    return {};
}

JsonFields grant(JsonObject& order, SoundCard& card) {
    card.grant(std::uint32_t(order.get("rate").integer(0, highestRate_Hz)),
               std::uint32_t(order.get("period").integer(0, longestPeriod)));
    return {};
}

std::function<void(const std::string&)> finishing(const OrderDone& done) {
    return [done](const std::string& error) {
        OrderResult result;
        result.error = error;
        done(result);
    };
}

void hear(JsonObject& order, Rig& rig, const OrderDone& done) {
    if (rig.microphone() == nullptr)
        throw std::runtime_error("there is no microphone");
    rig.microphone()->hear(order.get("name").text(longestPath), finishing(done));
}

void record(JsonObject& order, Rig& rig, const OrderDone& done) {
    if (rig.output() == nullptr)
        throw std::runtime_error("there is no output");
    const JsonPlace place = order.get("action");
    const std::string action = place.text(32);
    if (action != "start" && action != "stop")
        place.fail("must be start or stop");
    std::string path = (std::filesystem::path(rig.board().folder()) / "sound.wav").string();
    order.with("path", [&](const JsonPlace& p) { path = p.text(longestPath); });
    if (path.empty() || path.front() != '/')
        order.get("path").fail("must be an absolute path");
    if (action == "start") {
        finishing(done)(rig.output()->startRecording(path));
        return;
    }
    rig.output()->stopRecording(
        [done](const std::string& error, const std::string& file, std::uint64_t frames) {
            OrderResult result;
            result.error = error;
            result.fields.add("path", file).add("frames", frames);
            done(result);
        });
}

}  // namespace

SoundCard& soundCardOf(const JsonPlace& device, Rig& rig) {
    const std::string name = device.text(32);
    if (name != "microphone" && name != "output")
        device.fail("must be microphone or output");
    SoundCard* card = name == "microphone" ? rig.microphone() : rig.output();
    if (card == nullptr)
        throw std::runtime_error("there is no " + name);
    return *card;
}

void addSoundOrders(Orders& orders, Rig& rig) {
    // Orders that act on one card at once.
    const auto add = [&](const char* name, JsonFields (*run)(JsonObject&, SoundCard&)) {
        orders.addImmediate(name, [&rig, run](JsonObject& order) {
            return run(order, soundCardOf(order.get("device"), rig));
        });
    };
    add("clock-error", [](JsonObject& order, SoundCard& card) {
        card.setClockError(
            std::int32_t(order.get("ppm").integer(-mostClockError_ppm, mostClockError_ppm)));
        return JsonFields();
    });
    add("xrun", [](JsonObject&, SoundCard& card) {
        card.breakOff();
        return JsonFields();
    });
    add("suspend", suspend);
    add("open-fails", failOpenings);
    add("grant", grant);
    orders.add("hear",
               [&rig](JsonObject& order, const OrderDone& done) { hear(order, rig, done); });
    orders.add("record-sound",
               [&rig](JsonObject& order, const OrderDone& done) { record(order, rig, done); });
}

JsonFields soundFigures(const SoundCard& card) {
    JsonFields fields;
    if (!card.description().playback.settings.empty())
        fields.add("playback", streamFigures(card.figures(true), "queuedFrames"));
    if (!card.description().capture.settings.empty())
        fields.add("capture", streamFigures(card.figures(false), "unreadFrames"));
    return fields.add("openHandles", card.openHandles());
}

}  // namespace board
