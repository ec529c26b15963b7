// What the cards of the scenarios can be set to, against their listings.
#include "board/daemon/sound/hardwarespace.h"

#include "board/daemon/scenario.h"
#include "board/daemon/stream0.h"
#include "tests/board/sound/soundbench.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

namespace {

using board::HardwareSpace;
using board::SoundFormat;
using soundbench::anyParameters;
using soundbench::set;
using soundbench::setFormat;

std::vector<std::string> cardNames() {
    std::vector<std::string> names;
    const std::string known = board::findSound("synthetic-output");
    for (const auto& file :
         std::filesystem::directory_iterator(std::filesystem::path(known).parent_path()))
        if (file.path().extension() == ".json")
            names.push_back(file.path().stem());
    std::sort(names.begin(), names.end());
    return names;
}

bool offers(const board::SoundSetting& setting, int format, std::uint32_t channels,
            std::uint32_t rate) {
    const bool inList = std::count(setting.rates_Hz.begin(), setting.rates_Hz.end(), rate) != 0;
    const bool inRange =
        setting.rates_Hz.empty() && rate >= setting.rateMin_Hz && rate <= setting.rateMax_Hz;
    return (setting.formats >> unsigned(format) & 1) != 0 && channels >= setting.channelsMin &&
           channels <= setting.channelsMax && (inList || inRange);
}

class EveryCard : public testing::TestWithParam<std::string> {};

// Every combination is accepted exactly if an alternate setting has it.
TEST_P(EveryCard, TakesWhatItsSettingsHaveAndNothingElse) {
    const board::SoundDescription card = board::loadSound(board::findSound(GetParam()));
    const std::uint32_t rates[] = {8000,  11025, 12000, 16000, 22050, 24000,  32000, 44100,
                                   47999, 48000, 64000, 88200, 96000, 176400, 192000};
    for (const board::SoundLimits* limits : {&card.playback, &card.capture}) {
        const HardwareSpace space(*limits);
        unsigned accepted = 0;
        for (const int format : {1, 2, 6, 10, 14, 32})
            for (const std::uint32_t channels : {1U, 2U, 4U, 6U, 8U, 14U})
                for (const std::uint32_t rate : rates) {
                    snd_pcm_hw_params params = anyParameters();
                    setFormat(params, format);
                    set(params, SNDRV_PCM_HW_PARAM_CHANNELS, channels);
                    set(params, SNDRV_PCM_HW_PARAM_RATE, rate);
                    const bool expected = std::any_of(
                        limits->settings.begin(), limits->settings.end(), [&](const auto& setting) {
                            return offers(setting, format, channels, rate);
                        });
                    SoundFormat chosen;
                    const int result = space.choose(params, chosen);
                    ASSERT_EQ(result, expected ? 0 : -EINVAL)
                        << board::soundFormatName(format) << " " << channels << " " << rate;
                    if (!expected)
                        continue;
                    ++accepted;
                    EXPECT_EQ(chosen.format, format);
                    EXPECT_EQ(chosen.channels, channels);
                    EXPECT_EQ(chosen.rate_Hz, rate);
                    EXPECT_EQ(chosen.bufferFrames % chosen.periodFrames, 0u);
                    EXPECT_GE(chosen.periodFrames * chosen.frameBytes(), limits->periodBytesMin);
                    EXPECT_LE(chosen.bufferFrames * chosen.frameBytes(), limits->bufferBytesMax);
                }
        EXPECT_EQ(accepted > 0, !limits->settings.empty());
    }
}

INSTANTIATE_TEST_SUITE_P(Cards, EveryCard, testing::ValuesIn(cardNames()), [](const auto& info) {
    std::string name = info.param;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char letter) { return std::isalnum(letter) == 0; },
        '_');
    return name;
});

TEST(Listings, OddOnes) {
    // A running device's status has labels of its own.
    const auto running = board::loadSound(board::findSound("jabra-speak2-j75"));
    ASSERT_EQ(running.playback.settings.size(), 1u);
    EXPECT_EQ(running.playback.settings[0].rates_Hz,
              (std::vector<std::uint32_t>{8000, 16000, 32000, 44100, 48000}));
    ASSERT_EQ(running.capture.settings.size(), 1u);
    EXPECT_EQ(running.capture.settings[0].channelsMax, 1u);
    EXPECT_EQ(running.card, "Jabra Speak2 75");
    // Alternate settings without rates are no settings.
    const auto empty = board::loadSound(board::findSound("nux-nux-mg-300-audio"));
    EXPECT_TRUE(empty.playback.settings.empty() && empty.capture.settings.empty());
    // Several rates, each as a range; the format as a number.
    const auto old = board::loadSound(board::findSound("edirol-ua-4fx-advanced-mode"));
    ASSERT_EQ(old.capture.settings.size(), 1u);
    EXPECT_EQ(old.capture.settings[0].rates_Hz, (std::vector<std::uint32_t>{44100, 48000, 96000}));
    EXPECT_EQ(old.capture.settings[0].formats, std::uint64_t(1) << 32);
}

TEST(HardwareSpaces, RefinementTellsWhatChanged) {
    const board::SoundDescription card = board::loadSound(board::findSound("synthetic-output"));
    const HardwareSpace space(card.playback);
    snd_pcm_hw_params params = anyParameters();
    ASSERT_EQ(space.refine(params), 0);
    EXPECT_EQ(params.rmask, 0u);
    EXPECT_NE(params.cmask & 1U << SNDRV_PCM_HW_PARAM_RATE, 0u);
    EXPECT_NE(params.info & SNDRV_PCM_INFO_MMAP, 0u);
    params.cmask = 0;
    ASSERT_EQ(space.refine(params), 0);
    EXPECT_EQ(params.cmask, 0u);  // nothing is left to be done
}

// What is fixed of one parameter narrows the others to the settings that have it.
TEST(HardwareSpaces, SettingsThatLackSomethingFallAway) {
    board::SoundSetting low, high;
    low.formats = std::uint64_t(1) << SNDRV_PCM_FORMAT_S16_LE;
    low.channelsMin = low.channelsMax = 1;
    low.rates_Hz = {8000};
    high.formats = std::uint64_t(1) << SNDRV_PCM_FORMAT_S24_3LE;
    high.channelsMin = high.channelsMax = 2;
    high.rates_Hz = {48000};
    board::SoundLimits limits;
    limits.settings = {low, high};
    const HardwareSpace space(limits);
    SoundFormat chosen;
    snd_pcm_hw_params params = anyParameters();
    set(params, SNDRV_PCM_HW_PARAM_RATE, 48000);
    ASSERT_EQ(space.choose(params, chosen), 0);
    EXPECT_EQ(chosen.format, SNDRV_PCM_FORMAT_S24_3LE);
    EXPECT_EQ(chosen.channels, 2u);
    params = anyParameters();
    set(params, SNDRV_PCM_HW_PARAM_CHANNELS, 1);
    ASSERT_EQ(space.choose(params, chosen), 0);
    EXPECT_EQ(chosen.rate_Hz, 8000u);
    params = anyParameters();
    setFormat(params, SNDRV_PCM_FORMAT_S24_3LE);
    ASSERT_EQ(space.choose(params, chosen), 0);
    EXPECT_EQ(chosen.rate_Hz, 48000u);
}

TEST(HardwareSpaces, RandomWishesNeverGiveTheImpossible) {
    const board::SoundDescription card = board::loadSound(board::findSound("usb-audio-device"));
    const HardwareSpace space(card.capture);
    std::srand(1);
    const auto random = [](unsigned most) { return unsigned(std::rand()) % most; };
    unsigned chosenOnes = 0;
    for (int round = 0; round < 2000; ++round) {
        snd_pcm_hw_params params = anyParameters();
        for (int parameter = SNDRV_PCM_HW_PARAM_FIRST_INTERVAL;
             parameter <= SNDRV_PCM_HW_PARAM_LAST_INTERVAL; ++parameter)
            if (random(4) == 0) {
                const unsigned least = random(20000);
                set(params, parameter, least, least + random(200000));
            }
        const snd_pcm_hw_params wished = params;
        SoundFormat chosen;
        if (space.choose(params, chosen) != 0)
            continue;
        ++chosenOnes;
        const auto within = [&](int parameter, std::uint32_t value) {
            const auto& wish = wished.intervals[parameter - SNDRV_PCM_HW_PARAM_FIRST_INTERVAL];
            return value >= wish.min && value <= wish.max;
        };
        EXPECT_TRUE(within(SNDRV_PCM_HW_PARAM_RATE, chosen.rate_Hz));
        EXPECT_TRUE(within(SNDRV_PCM_HW_PARAM_PERIOD_SIZE, chosen.periodFrames));
        EXPECT_TRUE(within(SNDRV_PCM_HW_PARAM_BUFFER_SIZE, chosen.bufferFrames));
        EXPECT_TRUE(
            within(SNDRV_PCM_HW_PARAM_BUFFER_BYTES, chosen.bufferFrames * chosen.frameBytes()));
    }
    EXPECT_GT(chosenOnes, 20u);
}

}  // namespace
