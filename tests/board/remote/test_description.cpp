// Input devices out of JSON.

#include "board/daemon/descriptions.h"
#include "board/daemon/remote/keytable.h"
#include "board/daemon/scenario.h"

#include <gtest/gtest.h>
#include <linux/input.h>

#include <algorithm>

namespace board::test {

namespace {

InputDescription read(const std::string& json) {
    rapidjson::Document document;
    parseJson(json, "test", document);
    return readInput(JsonPlace(document, "test"));
}

std::string errorOf(const std::string& json) {
    try {
        read(json);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return {};
}

TEST(InputFile, theRemoteHasTheKeysThatDriveTheCamera) {
    setScenarioFolder(SCENARIO_FOLDER);
    const InputDescription remote = loadInput(findInput("remote"));
    EXPECT_EQ(remote.device, "NYFZ USB DONGLE");
    EXPECT_TRUE(remote.scanCodes);
    EXPECT_TRUE(remote.plugged);
    for (const std::uint16_t key : {KEY_W, KEY_S, KEY_A, KEY_D, KEY_I, KEY_O, KEY_R, KEY_T, KEY_L})
        EXPECT_EQ(std::count(remote.keys.begin(), remote.keys.end(), key), 1) << key;
}

TEST(InputFile, everyFieldCounts) {
    const InputDescription input = read(R"({
        "name": "one-2", "device": "A Device", "phys": "p", "uniq": "u", "bus": 5,
        "vendor": "0x1234", "product": 2, "version": 3, "keys": ["W", "KEY_5", "7", "28"],
        "leds": [0, 15], "scanCodes": false, "repeat": [400, 50], "number": 12, "plugged": false})");
    EXPECT_EQ(input.name, "one-2");
    EXPECT_EQ(input.device, "A Device");
    EXPECT_EQ(input.phys + input.uniq, "pu");
    EXPECT_EQ(input.bus, 5);
    EXPECT_EQ(input.vendor, 0x1234);
    EXPECT_EQ(input.product, 2);
    EXPECT_EQ(input.version, 3);
    EXPECT_EQ(input.keys, (std::vector<std::uint16_t>{KEY_W, KEY_5, KEY_7, KEY_ENTER}));
    EXPECT_EQ(input.leds, (std::vector<std::uint16_t>{0, 15}));
    EXPECT_FALSE(input.scanCodes);
    EXPECT_EQ(input.repeatDelay_ms, 400u);
    EXPECT_EQ(input.repeatPeriod_ms, 50u);
    EXPECT_EQ(input.firstNumber, 12u);
    EXPECT_FALSE(input.plugged);
    EXPECT_EQ(read(R"({"name": "a", "device": "b", "keys": [], "repeat": null})").repeatDelay_ms,
              0u);
}

TEST(InputFile, everyMistakeIsNamed) {
    EXPECT_EQ(errorOf(R"({"name": "a", "device": "b", "keys": ["HYPER"]})"),
              "test: $.keys[0]: \"HYPER\" is no key");
    EXPECT_EQ(errorOf(R"({"name": "a", "device": "b", "keys": "all"})"),
              "test: $.keys: must be a list of keys or \"keyboard\"");
    EXPECT_EQ(errorOf(R"({"name": "camera", "device": "b", "keys": []})"),
              "test: $.name: \"camera\" is another device's name");
    EXPECT_EQ(errorOf(R"({"name": "A b", "device": "b", "keys": []})"),
              "test: $.name: must be made of a-z, 0-9 and -");
    EXPECT_EQ(errorOf(R"({"name": "a", "device": "b", "keys": [], "repeat": [1]})"),
              "test: $.repeat: must be [delay, period] in milliseconds, or null");
    EXPECT_NE(errorOf(R"({"name": "a", "device": "b", "keys": [], "leds": [16]})"), "");
    EXPECT_NE(errorOf(R"({"name": "a", "device": "b", "keys": [], "colour": 1})"), "");
}

TEST(KeyTable, namesAndUsages) {
    EXPECT_EQ(keyNamed("W"), KEY_W);
    EXPECT_EQ(keyNamed("KEY_LEFTMETA"), KEY_LEFTMETA);
    EXPECT_EQ(keyNamed("17"), KEY_W);
    EXPECT_EQ(keyNamed("1"), KEY_1);
    EXPECT_EQ(keyNamed("w"), std::nullopt);
    EXPECT_EQ(keyNamed("0x300"), std::nullopt);
    EXPECT_EQ(keyName(KEY_W), "KEY_W");
    EXPECT_EQ(keyName(KEY_WAKEUP), "143");
    EXPECT_EQ(scanValue(KEY_W), 0x7001a);
    EXPECT_EQ(scanValue(KEY_RIGHTMETA), 0x700e7);
    EXPECT_EQ(scanValue(KEY_WAKEUP), 0);
}

}  // namespace

}  // namespace board::test
