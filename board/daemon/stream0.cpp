#include "board/daemon/stream0.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>

namespace board {

namespace {

struct NamedFormat {
    const char* name;
    int number;
    unsigned bits;
};

// Linear formats and floats, as the kernel numbers them.
constexpr NamedFormat formats[] = {
    {"S8", 0, 8},           {"U8", 1, 8},           {"S16_LE", 2, 16},    {"S16_BE", 3, 16},
    {"U16_LE", 4, 16},      {"U16_BE", 5, 16},      {"S24_LE", 6, 32},    {"S24_BE", 7, 32},
    {"U24_LE", 8, 32},      {"U24_BE", 9, 32},      {"S32_LE", 10, 32},   {"S32_BE", 11, 32},
    {"U32_LE", 12, 32},     {"U32_BE", 13, 32},     {"FLOAT_LE", 14, 32}, {"FLOAT_BE", 15, 32},
    {"FLOAT64_LE", 16, 64}, {"FLOAT64_BE", 17, 64}, {"S24_3LE", 32, 24},  {"S24_3BE", 33, 24},
    {"U24_3LE", 34, 24},    {"U24_3BE", 35, 24},
};

constexpr std::size_t longestId = 15, longestDriver = 15, longestCard = 31, longestLongName = 79;
constexpr std::uint32_t frameOfFullSpeed_us = 1000;
constexpr std::uint32_t frameOfHighSpeed_us = 125;

std::string cut(const std::string& text, std::size_t longest) {
    return text.substr(0, longest);
}

bool startsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

// The last word of the name that has letters, as far as an id can hold it.
std::string idFrom(const std::string& name) {
    std::istringstream words(name);
    std::string id;
    for (std::string word; words >> word;) {
        word.erase(std::remove_if(word.begin(), word.end(),
                                  [](unsigned char c) { return std::isalnum(c) == 0; }),
                   word.end());
        if (std::any_of(word.begin(), word.end(),
                        [](unsigned char c) { return std::isalpha(c) != 0; }))
            id = cut(word, longestId);
    }
    return id.empty() ? "Device" : id;
}

// "8000, 16000", "44100 - 44100 (continuous)", or nothing. Several lines add up.
void addRates(const std::string& text, SoundSetting& setting) {
    std::uint32_t first = 0;
    bool isRange = false;
    std::string cleaned = text;
    std::replace(cleaned.begin(), cleaned.end(), ',', ' ');
    std::istringstream words(cleaned);
    for (std::string word; words >> word;) {
        if (word == "-")
            isRange = true;
        const auto rate = std::uint32_t(std::strtoul(word.c_str(), nullptr, 10));
        if (rate == 0)
            continue;
        if (isRange && first != rate) {
            setting.rates_Hz.clear();
            setting.rateMin_Hz = first;
            setting.rateMax_Hz = rate;
        } else if (!isRange) {
            setting.rates_Hz.push_back(rate);
        }
        first = rate;
    }
}

std::uint64_t formatBits(const std::string& text) {
    std::uint64_t bits = 0;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        // Old kernels print the number.
        const int number = startsWith(word, "0x") ? int(std::strtol(word.c_str(), nullptr, 16))
                                                  : soundFormat(word);
        if (number >= 0 && soundFormatBits(number) != 0)
            bits |= std::uint64_t(1) << unsigned(number);
    }
    return bits;
}

class Listing {
  public:
    explicit Listing(SoundDescription& card) : card_(card) {}

    void line(const std::string& text) {
        const std::size_t start = text.find_first_not_of(' ');
        if (start == std::string::npos)
            return;
        const std::string word = text.substr(start);
        if (word == "Playback:" || word == "Capture:") {
            end();
            limits_ = word == "Playback:" ? &card_.playback : &card_.capture;
        } else if (startsWith(word, "Altset ") && std::isdigit((unsigned char)(word[7])) != 0) {
            // A running card's status has "Altset = 1".
            end();
            inside_ = limits_ != nullptr;
        } else if (inside_) {
            field(word);
        }
    }

    void end() {
        const bool usable = setting_.formats != 0 && setting_.channelsMax != 0 &&
                            (!setting_.rates_Hz.empty() || setting_.rateMax_Hz != 0);
        if (inside_ && usable)
            limits_->settings.push_back(setting_);
        inside_ = false;
        setting_ = {};
        setting_.channelsMin = setting_.channelsMax = 0;
    }

  private:
    void field(const std::string& word) {
        const std::size_t colon = word.find(':');
        if (colon == std::string::npos)
            return;
        const std::string label = word.substr(0, colon), value = word.substr(colon + 1);
        if (label == "Format")
            setting_.formats = formatBits(value);
        else if (label == "Channels")
            setting_.channelsMin = setting_.channelsMax = std::uint32_t(std::atoi(value.c_str()));
        else if (label == "Rates")
            addRates(value, setting_);
        else if (label == "Data packet interval")
            limits_->periodTimeMin_us = std::uint32_t(std::atoi(value.c_str()));
    }

    SoundDescription& card_;
    SoundLimits* limits_ = nullptr;
    SoundSetting setting_;
    bool inside_ = false;
};

}  // namespace

int soundFormat(const std::string& name) {
    for (const NamedFormat& format : formats)
        if (name == format.name)
            return format.number;
    return -1;
}

std::string soundFormatName(int number) {
    for (const NamedFormat& format : formats)
        if (number == format.number)
            return format.name;
    return {};
}

unsigned soundFormatBits(int number) {
    for (const NamedFormat& format : formats)
        if (number == format.number)
            return format.bits;
    return 0;
}

void describeFromListing(const std::string& text, SoundDescription& card) {
    std::istringstream lines(text);
    std::string head;
    std::getline(lines, head);
    const std::string longName = head.substr(0, head.rfind(" : "));
    const std::string name = longName.substr(0, longName.rfind(" at "));
    card.stream0 = text;
    card.longName = cut(longName, longestLongName);
    card.card = cut(name, longestCard);
    card.id = idFrom(name);
    card.driver = cut("USB-Audio", longestDriver);
    const bool fullSpeed = head.find("full speed") != std::string::npos;
    for (SoundLimits* limits : {&card.playback, &card.capture})
        limits->periodTimeMin_us = fullSpeed ? frameOfFullSpeed_us : frameOfHighSpeed_us;
    Listing listing(card);
    listing.end();
    for (std::string line; std::getline(lines, line);)
        listing.line(line);
    listing.end();
}

}  // namespace board
