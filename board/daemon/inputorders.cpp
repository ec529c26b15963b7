#include "board/daemon/inputorders.h"

#include "board/daemon/remote/inputs.h"

namespace board {

namespace {

constexpr std::int64_t longestHold_ms = 600000;

std::string deviceOf(JsonObject& order) {
    std::string name;
    order.with("device", [&](const JsonPlace& place) { name = place.text(32); });
    return name;
}

std::string keyOf(JsonObject& order) {
    const JsonPlace place = order.get("key");
    // A person may write 17 as well as "17".
    return place.value().IsString() ? place.text(32) : std::to_string(place.integer(1, UINT16_MAX));
}

std::string quoted(const std::vector<std::string>& texts) {
    std::string list;
    for (const std::string& text : texts)
        list += (list.empty() ? "\"" : ", \"") + text + "\"";
    return "[" + list + "]";
}

std::string writesOf(const InputState& state) {
    std::string list;
    for (const InputWrite& write : state.written) {
        JsonFields fields;
        fields.add("time_ns", std::uint64_t(write.time_ns));
        fields.add("type", std::uint32_t(write.type)).add("code", std::uint32_t(write.code));
        fields.addRaw("value", std::to_string(write.value));
        list += (list.empty() ? "" : ", ") + fields.object();
    }
    return "[" + list + "]";
}

JsonFields describe(const InputState& state, bool writes) {
    std::string leds;
    for (const std::uint16_t led : state.ledsLit)
        leds += (leds.empty() ? "" : ", ") + std::to_string(led);
    JsonFields fields;
    fields.add("name", state.name).add("device", state.device).add("node", state.node);
    fields.addRaw("keysDown", quoted(state.keysDown)).addRaw("ledsLit", "[" + leds + "]");
    fields.add("written", state.writtenCount);
    if (writes)
        fields.addRaw("writes", writesOf(state));
    return fields;
}

JsonFields inputs(JsonObject& order, Rig& rig) {
    const std::string wanted = deviceOf(order);
    std::string list;
    for (const InputState& state : rig.inputs().states())
        if (wanted.empty() || wanted == state.name)
            list += (list.empty() ? "" : ", ") + describe(state, !wanted.empty()).object();
    return JsonFields().addRaw("inputs", "[" + list + "]");
}

}  // namespace

void addInputOrders(Orders& orders, Rig& rig) {
    orders.addImmediate("press", [&rig](JsonObject& order) {
        const std::int64_t time = rig.inputs().press(deviceOf(order), keyOf(order));
        return JsonFields().add("time_ns", std::uint64_t(time));
    });
    orders.addImmediate("release", [&rig](JsonObject& order) {
        const std::int64_t time = rig.inputs().release(deviceOf(order), keyOf(order));
        return JsonFields().add("time_ns", std::uint64_t(time));
    });
    orders.add("hold", [&rig](JsonObject& order, const OrderDone& done) {
        const auto ms = std::uint32_t(order.get("ms").integer(0, longestHold_ms));
        rig.inputs().hold(deviceOf(order), keyOf(order), ms, [done](const std::string& error) {
            OrderResult result;
            result.error = error;
            result.changed = true;  // the key was down
            done(result);
        });
    });
    orders.addImmediate("inputs", [&rig](JsonObject& order) { return inputs(order, rig); });
}

}  // namespace board
