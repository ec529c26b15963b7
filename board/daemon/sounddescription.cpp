#include "board/daemon/descriptions.h"
#include "board/daemon/stream0.h"

#include <filesystem>

namespace board {

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t mostChannels = 64, highestRate_Hz = 768000;
constexpr std::int64_t mostBufferBytes = 16 << 20;

std::uint64_t readFormats(const JsonPlace& place) {
    std::uint64_t bits = 0;
    for (const JsonPlace& item : place.items(64)) {
        const std::string name = item.text(32);
        const int number = soundFormat(name);
        if (number < 0)
            item.fail("\"" + name + "\" is no sample format of the board");
        bits |= std::uint64_t(1) << unsigned(number);
    }
    if (bits == 0)
        place.fail("must name a sample format");
    return bits;
}

// [least, most], or one number.
void readRange(const JsonPlace& place, std::int64_t highest, std::uint32_t& least,
               std::uint32_t& most) {
    if (!place.value().IsArray()) {
        least = most = std::uint32_t(place.integer(1, highest));
        return;
    }
    const auto ends = place.items(2);
    if (ends.size() != 2)
        place.fail("must be [least, most]");
    least = std::uint32_t(ends[0].integer(1, highest));
    most = std::uint32_t(ends[1].integer(least, highest));
}

SoundSetting readSetting(const JsonPlace& place) {
    JsonObject object(place);
    SoundSetting setting;
    setting.formats = readFormats(object.get("formats"));
    readRange(object.get("channels"), mostChannels, setting.channelsMin, setting.channelsMax);
    if (object.has("rateRange")) {
        readRange(object.get("rateRange"), highestRate_Hz, setting.rateMin_Hz, setting.rateMax_Hz);
    } else {
        for (const JsonPlace& rate : object.get("rates").items(64))
            setting.rates_Hz.push_back(std::uint32_t(rate.integer(1, highestRate_Hz)));
        if (setting.rates_Hz.empty())
            object.get("rates").fail("must name a rate");
    }
    object.finish();
    return setting;
}

void readLimits(const JsonPlace& place, SoundLimits& limits) {
    JsonObject object(place);
    object.with("settings", [&](const JsonPlace& p) {
        limits.settings.clear();
        for (const JsonPlace& setting : p.items(64))
            limits.settings.push_back(readSetting(setting));
    });
    object.with("periodBytes", [&](const JsonPlace& p) {
        readRange(p, mostBufferBytes, limits.periodBytesMin, limits.periodBytesMax);
    });
    object.with("periods", [&](const JsonPlace& p) {
        readRange(p, mostBufferBytes, limits.periodsMin, limits.periodsMax);
    });
    object.with("bufferBytesMax", [&](const JsonPlace& p) {
        limits.bufferBytesMax = std::uint32_t(p.integer(1, mostBufferBytes));
    });
    object.with("periodTimeMin_us", [&](const JsonPlace& p) {
        limits.periodTimeMin_us = std::uint32_t(p.integer(0, 10000000));
    });
    object.with("pause", [&](const JsonPlace& p) { limits.pause = p.boolean(); });
    object.with("resume", [&](const JsonPlace& p) { limits.resume = p.boolean(); });
    object.finish();
}

}  // namespace

SoundDescription readSound(const JsonPlace& place) {
    JsonObject object(place);
    SoundDescription card;
    card.name = object.get("name").text(200);
    card.driver = card.id = "virtual";
    object.with("stream0", [&](const JsonPlace& p) {
        const fs::path here = fs::path(p.source()).parent_path();
        const std::string path = (here / p.text(4095)).string();
        std::error_code error;
        if (!fs::is_regular_file(path, error))
            p.fail(path + ": no such listing");
        describeFromListing(readTextFile(path), card);
    });
    object.with("id", [&](const JsonPlace& p) { card.id = p.text(15); });
    object.with("driver", [&](const JsonPlace& p) { card.driver = p.text(15); });
    object.with("card", [&](const JsonPlace& p) { card.card = p.text(31); });
    if (card.card.empty())
        card.card = card.name.substr(0, 31);
    if (card.longName.empty())
        card.longName = card.card;
    object.with("longName", [&](const JsonPlace& p) { card.longName = p.text(79); });
    object.with("playback", [&](const JsonPlace& p) { readLimits(p, card.playback); });
    object.with("capture", [&](const JsonPlace& p) { readLimits(p, card.capture); });
    object.finish();
    return card;
}

}  // namespace board
