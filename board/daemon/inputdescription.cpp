#include "board/daemon/inputdescription.h"

#include "board/daemon/descriptions.h"
#include "board/daemon/remote/keytable.h"

#include <linux/input.h>

#include <algorithm>

namespace board {

namespace {

constexpr std::size_t longestName = 255;
constexpr std::int64_t longestRepeat_ms = 60000;
constexpr std::int64_t highestNumber = 31;

std::uint16_t readWord(const JsonPlace& place) {
    return std::uint16_t(place.integerOrText(0, UINT16_MAX));
}

std::vector<std::uint16_t> readKeys(const JsonPlace& place) {
    if (place.value().IsString()) {
        if (place.text(32) != "keyboard")
            place.fail("must be a list of keys or \"keyboard\"");
        return keyboardKeys();
    }
    std::vector<std::uint16_t> keys;
    for (const JsonPlace& item : place.items(KEY_CNT)) {
        const auto key = keyNamed(item.text(32));
        if (!key)
            item.fail("\"" + item.text(32) + "\" is no key");
        keys.push_back(*key);
    }
    return keys;
}

void readRepeat(const JsonPlace& place, InputDescription& input) {
    if (place.isNull()) {
        input.repeatDelay_ms = 0;
        return;
    }
    const auto numbers = place.items(2);
    if (numbers.size() != 2)
        place.fail("must be [delay, period] in milliseconds, or null");
    input.repeatDelay_ms = std::uint32_t(numbers[0].integer(1, longestRepeat_ms));
    input.repeatPeriod_ms = std::uint32_t(numbers[1].integer(1, longestRepeat_ms));
}

std::string readName(const JsonPlace& place) {
    std::string name = place.text(32);
    const auto plain = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
    };
    if (name.empty() || !std::all_of(name.begin(), name.end(), plain))
        place.fail("must be made of a-z, 0-9 and -");
    // Orders name the devices by these words.
    for (const char* taken : {"camera", "display", "microphone", "output"})
        if (name == taken)
            place.fail("\"" + name + "\" is another device's name");
    return name;
}

}  // namespace

InputDescription readInput(const JsonPlace& place) {
    JsonObject object(place);
    InputDescription input;
    input.name = readName(object.get("name"));
    input.device = object.get("device").text(longestName);
    object.with("phys", [&](const JsonPlace& p) { input.phys = p.text(longestName); });
    object.with("uniq", [&](const JsonPlace& p) { input.uniq = p.text(longestName); });
    object.with("bus", [&](const JsonPlace& p) { input.bus = readWord(p); });
    object.with("vendor", [&](const JsonPlace& p) { input.vendor = readWord(p); });
    object.with("product", [&](const JsonPlace& p) { input.product = readWord(p); });
    object.with("version", [&](const JsonPlace& p) { input.version = readWord(p); });
    input.keys = readKeys(object.get("keys"));
    object.with("leds", [&](const JsonPlace& p) {
        for (const JsonPlace& item : p.items(LED_CNT))
            input.leds.push_back(std::uint16_t(item.integer(0, LED_MAX)));
    });
    object.with("scanCodes", [&](const JsonPlace& p) { input.scanCodes = p.boolean(); });
    object.with("repeat", [&](const JsonPlace& p) { readRepeat(p, input); });
    object.with("number", [&](const JsonPlace& p) {
        input.firstNumber = unsigned(p.integer(0, highestNumber));
    });
    object.with("plugged", [&](const JsonPlace& p) { input.plugged = p.boolean(); });
    // Where the figures come from: for the reader of the file, nothing for the board.
    object.with("source", [](const JsonPlace& p) { p.text(4095); });
    object.finish();
    return input;
}

}  // namespace board
