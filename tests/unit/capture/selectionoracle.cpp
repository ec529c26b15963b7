#include "tests/unit/capture/selectionoracle.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <set>
#include <sstream>

namespace oracle {
namespace {

const char* const listOrder[] = {"MJPG", "YUYV", "H264"};
const char* const preference[] = {"H264", "MJPG", "YUYV"};

std::uint32_t codeOf(const char* letters) {
    std::uint32_t code;
    std::memcpy(&code, letters, sizeof code);
    return code;
}

std::uint64_t bandwidth(const decInfo& mode) {
    const std::uint64_t pixels = std::uint64_t{mode.width} * mode.height % 0x100000000;
    return pixels * mode.fps % 0x100000000;
}

bool isOffered(const std::string& card, const decInfo& mode) {
    const bool shunned =
        card == "OBSBOT Tiny 4K" &&
        std::make_tuple(mode.width, mode.height, mode.fps) == std::make_tuple(1920U, 1080U, 60U);
    const bool tooMuch =
        mode.format == codeOf("MJPG") &&
        (double{1.0} * mode.width * mode.height > 1920.0 * 1080.0 || bandwidth(mode) > 124416000);
    return mode.fps > 15 && !shunned && !tooMuch;
}

// How well a pair fits; pairs of another kind than the best are out of the race.
enum Fit { misfit, scaled, unscaled };

Fit fitOf(const decInfo& camera, const decInfo& display) {
    const bool covers = camera.width >= display.width && camera.height >= display.height;
    const bool same = camera.width == display.width && camera.height == display.height;
    return same && camera.fps <= display.fps ? unscaled : covers ? scaled : misfit;
}

// The answers for one pixel format. An unscaled pair fits as a scaled one too, but then there is
// the better kind.
std::vector<Choice> choicesOf(const Modes& camera, const Modes& display) {
    Fit best = misfit;
    for (const decInfo& c : camera) {
        for (const decInfo& d : display) {
            best = std::max(best, fitOf(c, d));
        }
    }
    std::vector<Choice> choices;
    if (best == misfit) {
        return choices;
    }
    std::uint64_t top = 0;
    for (const decInfo& c : camera) {
        const bool fits = std::any_of(display.begin(), display.end(),
                                      [&](const decInfo& d) { return fitOf(c, d) >= best; });
        top = fits ? std::max(top, bandwidth(c)) : top;
    }
    for (const decInfo& c : camera) {
        for (const decInfo& d : display) {
            const bool beaten =
                bandwidth(c) != top ||
                std::any_of(display.begin(), display.end(), [&](const decInfo& other) {
                    return fitOf(c, other) >= best && bandwidth(other) > bandwidth(d);
                });
            if (fitOf(c, d) >= best && !beaten) {
                choices.push_back({best == unscaled ? "by pass" : "scale", c, d});
            }
        }
    }
    return choices;
}

}  // namespace

Modes offeredBy(const board::CameraDescription& camera) {
    Modes modes;
    for (const char* letters : listOrder) {
        for (const board::CameraFormat& format : camera.formats) {
            if (format.fourcc != codeOf(letters)) {
                continue;
            }
            for (const board::CameraSize& size : format.sizes) {
                for (const board::Fraction& interval : size.intervals) {
                    const auto rate = std::div(static_cast<long long>(interval.denominator),
                                               std::max<long long>(interval.numerator, 1));
                    const decInfo mode{format.fourcc, size.width, size.height,
                                       static_cast<std::uint32_t>(rate.quot)};
                    if (interval.numerator != 0 && isOffered(camera.card, mode)) {
                        modes.push_back(mode);
                    }
                }
            }
        }
    }
    return modes;
}

Modes listedBy(const std::vector<board::DisplayMode>& connectorModes) {
    Modes modes;
    std::set<std::tuple<unsigned, unsigned, unsigned>> seen;
    for (const board::DisplayMode& mode : connectorModes) {
        if (mode.vrefresh_Hz <= 60 &&
            seen.emplace(mode.hdisplay, mode.vdisplay, mode.vrefresh_Hz).second) {
            modes.push_back({0, mode.hdisplay, mode.vdisplay, mode.vrefresh_Hz});
        }
    }
    return modes;
}

std::vector<Choice> rightChoices(const Modes& camera, const Modes& display) {
    const decInfo& first = display.front();
    for (const char* letters : preference) {
        const decInfo wanted{codeOf(letters), first.width, first.height, first.fps};
        for (const decInfo& mode : camera) {
            if (std::memcmp(&mode, &wanted, sizeof mode) == 0) {
                return {{"best by pass", mode, wanted}};
            }
        }
    }
    for (const char* letters : preference) {
        Modes ofFormat;
        std::copy_if(camera.begin(), camera.end(), std::back_inserter(ofFormat),
                     [&](const decInfo& mode) { return mode.format == codeOf(letters); });
        auto choices = choicesOf(ofFormat, display);
        if (!choices.empty()) {
            return choices;
        }
    }
    return {};
}

std::string describe(const Choice& choice) {
    std::ostringstream text;
    text << choice.kind << " "
         << std::string(reinterpret_cast<const char*>(&choice.camera.format), 4) << " "
         << choice.camera.width << "x" << choice.camera.height << "@" << choice.camera.fps << " on "
         << choice.display.width << "x" << choice.display.height << "@" << choice.display.fps;
    return text.str();
}

}  // namespace oracle
