// The sound format that is chosen out of the kernel's text about the camera's card.
#include "control/capture/analysisfile.h"
#include "tests/unit/capture/fakesound.h"
#include "tests/unit/capture/output.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>

namespace {

struct Choice {
    std::string device;
    unsigned channels = 0;
    int format = -1;
    unsigned rate = 0;
    bool operator==(const Choice& other) const {
        return device == other.device && channels == other.channels && format == other.format &&
               rate == other.rate;
    }
};

std::ostream& operator<<(std::ostream& out, const Choice& choice) {
    return out << choice.device << ' ' << choice.channels << 'x' << choice.format << '@'
               << choice.rate;
}

struct Analysed {
    Choice choice;
    bool result = false;
    std::vector<audioInfo> infos;
    std::string out;
};

Analysed analyse() {
    Analysed analysed;
    AnalysisFile analysis("/dev/video0");
    analysed.out = outputOf([&] { analysed.result = analysis.analysisAudioDevice(); }).out;
    const audioInfo& chosen = analysis.selectedAudio;
    analysed.choice = {chosen.device, chosen.channels, chosen.format, chosen.rate};
    analysed.infos = analysis.audioInfos;
    return analysed;
}

Analysed analyse(const std::string& text) {
    sound::reset();
    sound::setText(1, text);
    return analyse();
}

// The same by other means: all places of all labels are found first, each setting looks up the
// first behind the end of the setting before it, and every setting gets a mark.
class Oracle {
  public:
    explicit Oracle(const std::string& text) : text_(text) {
        const std::vector<std::size_t> settings = places("Altset");
        std::size_t start = 0;
        for (const std::size_t place : settings) {
            read(start);
            start = place + 6;
        }
    }

    std::size_t settings() const { return settings_.size(); }

    std::optional<Choice> best() const {
        const auto mark = [](const Choice& c) {
            const bool high = c.rate == 48000 || c.rate == 44100 || c.rate == 32000;
            const bool low = c.rate == 16000 || c.rate == 8000;
            return c.format != 2 ? 0 : high && c.channels == 2 ? 3 : high ? 2 : low ? 1 : 0;
        };
        const auto best =
            std::max_element(settings_.begin(), settings_.end(),
                             [&](const Choice& a, const Choice& b) { return mark(a) < mark(b); });
        if (best == settings_.end() || mark(*best) == 0) {
            return std::nullopt;
        }
        return *best;
    }

  private:
    std::vector<std::size_t> places(const std::string& label) const {
        std::vector<std::size_t> found;
        for (std::size_t i = 0; i + label.size() <= text_.size(); ++i) {
            if (text_.compare(i, label.size(), label) == 0) {
                found.push_back(i);
            }
        }
        return found;
    }

    std::optional<std::string> after(const std::string& label, std::size_t start) const {
        const std::vector<std::size_t> found = places(label);
        const auto first = std::lower_bound(found.begin(), found.end(), start);
        if (first == found.end()) {
            return std::nullopt;
        }
        std::istringstream rest(text_.substr(*first + label.size()));
        std::string line;
        std::getline(rest, line);
        return line;
    }

    void read(std::size_t start) {
        static const std::map<std::string, int> codes = {
            {"S16_LE", 2}, {"S32_LE", 10}, {"S24_3LE", 32}};
        const auto channels = after("Channels: ", start);
        if (!channels) {
            return;
        }
        Choice setting{"hw:1,0", unsigned(channels->at(0) - '0'), 0, 0};
        if (const auto format = after("Format: ", start)) {
            const auto code = codes.find(*format);
            setting.format = code == codes.end() ? -1 : code->second;
        }
        if (const auto rate = after("Rates: ", start)) {
            std::istringstream(*rate) >> setting.rate;
        }
        settings_.push_back(setting);
    }

    std::string text_;
    std::vector<Choice> settings_;
};

std::string textOf(const std::string& name) {
    std::ifstream file(std::string(STREAM_TEXT_FOLDER) + "/" + name + ".txt", std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// What a person reads out of each text. The last setting of a text is never taken where there are
// several: each takes the labels behind the one before it.
const std::map<std::string, Choice> readByEye = {
    {"arturia-minifuse-2", {"hw:1,0", 4, 2, 44100}},
    {"edirol-ua-4fx-advanced-mode", {"hw:1,0"}},
    {"epos-expand-30t", {"hw:1,0", 2, 2, 48000}},
    {"epos-expand-40t", {"hw:1,0", 2, 2, 48000}},
    {"hd-pro-webcam-c920", {"hw:1,0", 2, 2, 16000}},
    {"jabra-speak-510-0420", {"hw:1,0", 2, 2, 8000}},
    {"jabra-speak-510-0422", {"hw:1,0", 2, 2, 8000}},
    {"jabra-speak2-j75", {"hw:1,0", 1, 2, 32000}},
    {"nux-nux-mg-300-audio", {"hw:1,0"}},
    {"pioneer-dj-corporation-djm-250mk2", {"hw:1,0"}},
    {"razer-razer-kraken-x-usb", {"hw:1,0", 2, 2, 8000}},
    {"roland-bridge-cast-v2", {"hw:1,0"}},
    {"rtx-a-s-rtx6001-usb-audio-2-0", {"hw:1,0", 2, 2, 44100}},
    {"sound-devices-mixpre3ii-2020", {"hw:1,0", 2, 2, 44100}},
    {"sound-devices-mixpre6ii", {"hw:1,0", 2, 2, 44100}},
    {"sunplusit-inc-hama-c-600-pro-webcam", {"hw:1,0", 2, 2, 32000}},
    {"synthetic-microphone", {"hw:1,0", 2, 2, 48000}},
    {"synaptics-hi-res-audio", {"hw:1,0", 2, 2, 44100}},
    {"ugreen-ktmicro", {"hw:1,0", 2, 2, 44100}},
    {"usb-audio-device", {"hw:1,0", 2, 2, 48000}},
    {"usb-device-0x46d-0x809", {"hw:1,0", 1, 2, 32000}},
};

class RealText : public testing::TestWithParam<std::string> {};

TEST_P(RealText, IsReadAsByTheOracleAndByEye) {
    const std::string text = textOf(GetParam());
    ASSERT_FALSE(text.empty());
    const Oracle oracle(text);
    const Analysed analysed = analyse(text);
    EXPECT_EQ(analysed.infos.size(), oracle.settings());
    EXPECT_EQ(analysed.result, oracle.best().has_value());
    EXPECT_EQ(analysed.choice, oracle.best().value_or(Choice{"hw:1,0"}));
    EXPECT_EQ(analysed.choice, readByEye.at(GetParam()));
}

std::vector<std::string> allTexts() {
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator(STREAM_TEXT_FOLDER)) {
        names.push_back(file.path().stem().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

INSTANTIATE_TEST_SUITE_P(AudioChoice, RealText, testing::ValuesIn(allTexts()),
                         [](const testing::TestParamInfo<std::string>& name) {
                             std::string word = name.param;
                             std::replace(word.begin(), word.end(), '-', '_');
                             return word;
                         });

TEST(AudioChoice, HasATextForEveryLineReadByEye) {
    EXPECT_EQ(allTexts().size(), readByEye.size());
}

std::string setting(const std::string& channels, const std::string& format,
                    const std::string& rates) {
    return "    Altset 1\n    Format: " + format + "\n    Channels: " + channels +
           "\n    Rates: " + rates + "\n";
}

TEST(AudioChoice, PrintsWhatItReadsAndWhatItTakes) {
    const std::string text = setting("1", "S24_3LE", "") + setting("1", "S16_LE", "48000, 16000") +
                             "    Sync EP Altset: 1\n";
    const Analysed analysed = analyse(text);
    EXPECT_TRUE(analysed.result);
    EXPECT_EQ(analysed.out,
              "1 channelsStr 1 channels 1\n1 formatStr S24_3LE format 32\n1 rateStr  rate 0\n"
              "2 channelsStr 1 channels 1\n2 formatStr S24_3LE format 32\n2 rateStr  rate 0\n"
              "3 channelsStr 1 channels 1\n3 formatStr S16_LE format 2\n"
              "3 rateStr 48000, 16000 rate 48000\n"
              "audio select second succeed\ncount = 3 index = 2\n" +
                  text +
                  "###!!!---***  select audio fmt ***---!!!### : device: hw:1,0 channels:1 "
                  "formats:2 rate:48000\n");
}

// The first setting is read from the start of the text, every other from behind the one before it:
// the first block counts twice and the last one never.
TEST(AudioChoice, ASettingTakesTheLabelsBehindTheOneBefore) {
    const Analysed analysed =
        analyse(setting("1", "S16_LE", "8000") + setting("2", "S24_3LE", "96000") +
                setting("2", "S16_LE", "48000"));
    ASSERT_EQ(analysed.infos.size(), 3U);
    EXPECT_EQ(analysed.infos[0].rate, 8000U);
    EXPECT_EQ(analysed.infos[1].rate, 8000U);
    EXPECT_EQ(analysed.infos[2].rate, 96000U);
    EXPECT_EQ(analysed.choice, (Choice{"hw:1,0", 1, 2, 8000}));
}

TEST(AudioChoice, PrefersTwoChannelsThenFullBandwidthThenTheRest) {
    const std::string low = setting("2", "S16_LE", "16000");
    const std::string mono = setting("1", "S16_LE", "48000");
    const std::string stereo = setting("2", "S16_LE", "32000");
    const std::string end = "Altset\n";
    EXPECT_EQ(analyse(low + mono + stereo + end).choice, (Choice{"hw:1,0", 2, 2, 32000}));
    EXPECT_EQ(analyse(low + mono + end).choice, (Choice{"hw:1,0", 1, 2, 48000}));
    const Analysed last = analyse(setting("8", "S16_LE", "11025") + low + end);
    EXPECT_EQ(last.choice, (Choice{"hw:1,0", 2, 2, 16000}));
    EXPECT_NE(last.out.find("audio select third succeed\ncount = 3 index = 2\n"),
              std::string::npos);
    EXPECT_NE(analyse(stereo).out.find("audio select first succeed\n"), std::string::npos);
}

TEST(AudioChoice, TakesTheFirstRateOfALine) {
    const Analysed analysed = analyse(setting("2", "S16_LE", "96000, 48000"));
    EXPECT_FALSE(analysed.result);
    EXPECT_EQ(analysed.choice, Choice{"hw:1,0"});
    EXPECT_EQ(analysed.infos.at(0).rate, 96000U);
    EXPECT_NE(analysed.out.find("audio select faild\n"), std::string::npos);
}

TEST(AudioChoice, RefusesFormatsWithoutAName) {
    const Analysed analysed = analyse(setting("2", "0x20", "48000"));
    EXPECT_FALSE(analysed.result);
    EXPECT_EQ(analysed.infos.at(0).format, -1);
}

TEST(AudioChoice, ReadsOneDigitOfTheChannels) {
    EXPECT_EQ(analyse(setting("14", "S16_LE", "48000")).choice, (Choice{"hw:1,0", 1, 2, 48000}));
}

// Labels are looked up behind the start of the setting before, so that a word in a status line
// shifts them.
TEST(AudioChoice, CountsStatusLinesAsSettings) {
    const Analysed analysed = analyse("  Status: Running\n    Altset = 1\n" +
                                      setting("2", "S16_LE", "44100") + "    Sync EP Altset: 1\n");
    EXPECT_EQ(analysed.infos.size(), 3U);
    EXPECT_NE(analysed.out.find("count = 3 index = 0\n"), std::string::npos);
}

TEST(AudioChoice, SkipsASettingWithoutChannelsAndKeepsMissingFieldsZero) {
    const Analysed analysed = analyse("Altset 1\nFormat: S16_LE\nRates: 48000\n");
    EXPECT_EQ(analysed.infos.size(), 0U);
    EXPECT_FALSE(analysed.result);
    EXPECT_EQ(analysed.out, "audio select faild\n");
    const Analysed bare = analyse("Altset 1\nChannels: 2");
    ASSERT_EQ(bare.infos.size(), 1U);
    EXPECT_EQ(bare.infos[0].format, 0);
    EXPECT_EQ(bare.infos[0].rate, 0U);
    EXPECT_EQ(analyse("Altset 1\nChannels: ").infos.at(0).channels, 0U);
}

TEST(AudioChoice, ReadsTheFirstOfCardsOneAndTwo) {
    sound::reset();
    EXPECT_EQ(analyse().choice, Choice{""});
    sound::setText(0, setting("2", "S16_LE", "48000"));
    EXPECT_EQ(analyse().choice, Choice{""});
    EXPECT_EQ(analyse().out, "");
    sound::setText(2, setting("1", "S16_LE", "16000"));
    EXPECT_EQ(analyse().choice, (Choice{"hw:2,0", 1, 2, 16000}));
    sound::setText(1, setting("2", "S16_LE", "44100"));
    EXPECT_EQ(analyse().choice, (Choice{"hw:1,0", 2, 2, 44100}));
    sound::setText(1, "");
    EXPECT_EQ(analyse().choice, Choice{"hw:1,0"});
    sound::reset();
}

// However it is read, in whatever pieces.
TEST(AudioChoice, FindsASettingAnywhereInALongText) {
    const std::string one = setting("2", "S16_LE", "48000");
    for (const std::size_t border : {4096, 8192}) {
        for (std::size_t place = border - one.size() - 1; place <= border + 1; ++place) {
            const Analysed analysed = analyse(std::string(place, 'x') + one + "end\n");
            ASSERT_EQ(analysed.choice, (Choice{"hw:1,0", 2, 2, 48000})) << "at " << place;
        }
    }
    sound::reset();
}

// Nothing of the text is trusted: a broken or hostile one ends in a choice or in none, soon.
TEST(AudioChoice, SurvivesTextsWithoutEnd) {
    std::string text;
    for (int i = 0; i < 200000; ++i) {
        text += "Altset";
    }
    EXPECT_FALSE(analyse(text).result);
    EXPECT_FALSE(analyse(std::string(1 << 20, '\0')).result);
    EXPECT_FALSE(analyse(setting("2", "S16_LE", "99999999999999999999")).result);
    EXPECT_FALSE(analyse(setting("2", "S16_LE", "-48000")).result);
    EXPECT_FALSE(analyse(setting(std::string(1, '\0'), "S16_LE", "48000")).choice.channels != 0);
    sound::reset();
}

}  // namespace
