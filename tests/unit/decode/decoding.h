// What the tests of the hardware decoders share.
#pragma once

#include "control/convert/rkrga.h"
#include "control/decode/deccommon.h"
#include "control/task/msgvideo.h"

#include "tests/unit/decode/fakempp.h"
#include "tests/unit/display/displayaccess.h"
#include "tests/unit/task/printed.h"
#include "tests/unit/task/waiting.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <cctype>
#include <optional>
#include <string>
#include <utility>

// A compressed frame, handed over as the capture task does; its bytes are all `first`.
inline msgVideo* compressedFrame(double pts, unsigned char first, std::size_t bytes = 100) {
    auto* message = new msgVideo;
    message->data[0] = new unsigned char[bytes];
    std::fill_n(message->data[0], bytes, first);
    message->length[0] = static_cast<std::uint32_t>(bytes);
    message->width = message->virWidth = 64;
    message->height = message->virHeight = 48;
    message->pts = pts;
    return message;
}

// The text with every address replaced by P.
inline std::string withoutAddresses(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        // At the start of a line; elsewhere it is a size.
        if (text.compare(i, 2, "0x") == 0 && (i == 0 || text[i - 1] == '\n')) {
            for (i += 2; i < text.size() && std::isxdigit(static_cast<unsigned char>(text[i]));) {
                ++i;
            }
            result += 'P';
            --i;
        } else {
            result += text[i];
        }
    }
    return result;
}

struct Printed {
    std::string out, err;
};

// Both streams, addresses replaced.
template <typename Action>
Printed bothPrintedBy(const Action& action) {
    testing::internal::CaptureStderr();
    const std::string out = printedBy(action);
    return {withoutAddresses(out), withoutAddresses(testing::internal::GetCapturedStderr())};
}

// The lines that do not come by chance: without the queue's time-outs.
inline std::string withoutTimeouts(const std::string& text) {
    std::string result;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size() - 1) + 1;
        const std::string line = text.substr(begin, end - begin);
        if (line.find(" getq timeout\n") == std::string::npos) {
            result += line;
        }
        begin = end;
    }
    return result;
}

inline std::size_t countOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// Whether other threads print that text before long.
inline bool tellsSoon(const std::string& text) {
    std::string printed;
    return comesTrue([&] {
        printed += printedBy([] { std::this_thread::sleep_for(std::chrono::milliseconds(5)); });
        return printed.find(text) != std::string::npos;
    });
}

// What the ring holds, taken out of it.
struct Shown {
    double pts = 0;
    unsigned char luma = 0;  // of the whole picture; 1 when it is not of one colour
};

inline Shown takeShown(DisplayWithMemory& screen) {
    int index = -1;
    unsigned width = 0, height = 0;
    Shown shown;
    if (!screen.display.deQueue(&index, &width, &height, &shown.pts)) {
        return {};
    }
    const std::vector<unsigned char>& memory = screen.memory.at(static_cast<std::size_t>(index));
    const auto luma = memory.begin() + static_cast<std::ptrdiff_t>(width) * height;
    shown.luma = std::count(memory.begin(), luma, memory.front()) == luma - memory.begin()
                     ? memory.front()
                     : static_cast<unsigned char>(1);
    screen.display.release();
    return shown;
}

// A display, a 2D engine and the played library; nothing of the library may be left.
class HardwareDecoder : public testing::Test {
  protected:
    HardwareDecoder() { fake.reset(); }
    ~HardwareDecoder() override { EXPECT_EQ(fake.alive(), ""); }

    int ready() { return DisplayDrmTestAccess::readyCount(screen->display); }
    bool comesOnScreen(int pictures) {
        return comesTrue([&] { return ready() >= pictures; });
    }

    static constexpr unsigned displayWidth = 32, displayHeight = 24;
    FakeMpp& fake = FakeMpp::instance();
    std::optional<DisplayWithMemory> screen{std::in_place, displayWidth, displayHeight,
                                            displayWidth};
    std::optional<RkRga> engine{std::in_place};
};
