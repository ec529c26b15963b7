#include <drm_mode.h>

#include <algorithm>

#include "board/edid/edidblock.h"
#include "board/edid/timings.h"

namespace board {
namespace {

constexpr std::size_t revisionByte = 19, inputByte = 20, featureByte = 24;
constexpr std::size_t establishedByte = 35, standardByte = 38, standardCount = 8;
constexpr std::size_t firstDescriptor = 54, descriptorBytes = 18, descriptors = 4;
constexpr std::uint8_t moreStandard = 0xfa, coordinated = 0xf8, moreEstablished = 0xf7;
constexpr std::uint8_t rangeLimits = 0xfd;
constexpr std::uint8_t defaultFormula = 0x01, digital = 0x80;

struct Request {
    std::uint16_t width, height;
    std::uint8_t rate;
    bool reducedBlanking;
};

// Established timings III: from the highest bit of the descriptor's seventh byte on.
constexpr Request establishedThree[] = {
    {640, 350, 85, false},   {640, 400, 85, false},   {720, 400, 85, false},
    {640, 480, 85, false},   {848, 480, 60, false},   {800, 600, 85, false},
    {1024, 768, 85, false},  {1152, 864, 75, false},  {1280, 768, 60, true},
    {1280, 768, 60, false},  {1280, 768, 75, false},  {1280, 768, 85, false},
    {1280, 960, 60, false},  {1280, 960, 85, false},  {1280, 1024, 60, false},
    {1280, 1024, 85, false}, {1360, 768, 60, false},  {1440, 900, 60, true},
    {1440, 900, 60, false},  {1440, 900, 75, false},  {1440, 900, 85, false},
    {1400, 1050, 60, true},  {1400, 1050, 60, false}, {1400, 1050, 75, false},
    {1400, 1050, 85, false}, {1680, 1050, 60, true},  {1680, 1050, 60, false},
    {1680, 1050, 75, false}, {1680, 1050, 85, false}, {1600, 1200, 60, false},
    {1600, 1200, 65, false}, {1600, 1200, 70, false}, {1600, 1200, 75, false},
    {1600, 1200, 85, false}, {1792, 1344, 60, false}, {1792, 1344, 75, false},
    {1856, 1392, 60, false}, {1856, 1392, 75, false}, {1920, 1200, 60, true},
    {1920, 1200, 60, false}, {1920, 1200, 75, false}, {1920, 1200, 85, false},
    {1920, 1440, 60, false}, {1920, 1440, 75, false},
};

// Calls `use` with every display descriptor of a kind (18 bytes).
template <typename Use>
void forDescriptors(const EdidBlock& base, std::uint8_t kind, Use use) {
    for (std::size_t i = 0; i < descriptors; ++i) {
        const std::uint8_t* descriptor = &base[firstDescriptor + i * descriptorBytes];
        const bool isText = descriptor[0] == 0 && descriptor[1] == 0 && descriptor[2] == 0;
        if (isText && descriptor[3] == kind)
            use(descriptor);
    }
}

bool takesReducedBlanking(const EdidBlock& base) {
    if (base[revisionByte] < 4)
        return (base[inputByte] & digital) != 0;
    bool takes = false, said = false;
    forDescriptors(base, rangeLimits, [&](const std::uint8_t* descriptor) {
        if (descriptor[10] == 0x04) {
            said = true;
            takes = takes || (descriptor[15] & 0x10) != 0;
        }
    });
    return said ? takes : (base[inputByte] & digital) != 0;
}

// The panel size that eight-pixel steps cannot say: listed as 1360x765 or 1368x769.
std::optional<DisplayMode> panel1366() {
    std::optional<DisplayMode> mode = cvtMode(1366, 768, 60);
    if (mode) {
        mode->hdisplay = 1366;
        --mode->hsyncStart;
        --mode->hsyncEnd;
        finishMode(*mode);
    }
    return mode;
}

std::optional<DisplayMode> standardMode(const EdidBlock& base, unsigned width, unsigned height,
                                        unsigned rate) {
    if (width == 1366)
        return panel1366();
    if (takesReducedBlanking(base))
        if (const DisplayMode* mode = findDmt(width, height, rate, true))
            return *mode;
    if (const DisplayMode* mode = findDmt(width, height, rate, false))
        return *mode;
    if (base[revisionByte] < 2 || !(base[featureByte] & defaultFormula))
        return std::nullopt;
    return base[revisionByte] >= 4 ? cvtMode(width, height, rate) : gtfMode(width, height, rate);
}

void addStandard(const EdidBlock& base, const std::uint8_t* code, ModeList& list) {
    const bool unused = code[0] == code[1] && (code[0] == 0 || code[0] == 1 || code[0] == 0x20);
    if (unused)
        return;
    unsigned width = code[0] * 8U + 248;
    const unsigned rate = (code[1] & 0x3fU) + 60;
    const unsigned shape = code[1] >> 6;
    const unsigned square = base[revisionByte] < 3 ? width : width * 10 / 16;
    const unsigned heights[] = {square, width * 3 / 4, width * 4 / 5, width * 9 / 16};
    unsigned height = heights[shape];
    if (rate == 60 && ((width == 1360 && height == 765) || (width == 1368 && height == 769))) {
        width = 1366;
        height = 768;
    }
    for (const DisplayMode& mode : list.modes())
        if (mode.hdisplay == width && mode.vdisplay == height && mode.vrefresh_Hz == rate)
            return;
    if (const std::optional<DisplayMode> mode = standardMode(base, width, height, rate))
        list.add(*mode);
}

struct Limits {
    unsigned lowestRate, highestRate, lowestLines_kHz, highestLines_kHz;
    std::uint32_t clock_kHz;
    unsigned formula;  // byte 10 of the descriptor
};

bool isWithin(const Limits& limits, const EdidBlock& base, const DisplayMode& mode) {
    const unsigned lines_Hz = mode.clock_kHz * 1000 / mode.htotal;
    return lines_Hz >= limits.lowestLines_kHz * 1000 &&
           lines_Hz <= limits.highestLines_kHz * 1000 && mode.vrefresh_Hz >= limits.lowestRate &&
           mode.vrefresh_Hz <= limits.highestRate &&
           (limits.clock_kHz == 0 || mode.clock_kHz <= limits.clock_kHz) &&
           (!isReducedBlanking(mode) || takesReducedBlanking(base));
}

// Inferred modes are smaller than one that is listed, and new.
bool isUseful(const DisplayMode& mode, const ModeList& list) {
    bool smaller = false;
    for (const DisplayMode& known : list.modes()) {
        if (known.hdisplay == mode.hdisplay && known.vdisplay == mode.vdisplay &&
            known.vrefresh_Hz == mode.vrefresh_Hz)
            return false;
        smaller = smaller || (mode.hdisplay <= known.hdisplay && mode.vdisplay <= known.vdisplay);
    }
    return smaller;
}

void addWithin(const Limits& limits, const EdidBlock& base, ModeList& list) {
    const auto addIf = [&](const DisplayMode& mode) {
        if (isWithin(limits, base, mode) && isUseful(mode, list))
            list.add(mode);
    };
    std::for_each(dmtModes().begin(), dmtModes().end(), addIf);
    const bool gtf = base[revisionByte] >= 1 && limits.formula == 0x00;
    const bool cvt = base[revisionByte] >= 4 && limits.formula == 0x04;
    constexpr Request extra[] = {{1024, 576, 60, false},  {1366, 768, 60, false},
                                 {1600, 900, 60, false},  {1680, 945, 60, false},
                                 {1920, 1080, 60, false}, {2048, 1152, 60, false},
                                 {2048, 1536, 60, false}};
    for (const Request& request : extra) {
        std::optional<DisplayMode> mode;
        if (request.width == 1366 && (gtf || cvt))
            mode = panel1366();
        else if (gtf)
            mode = gtfMode(request.width, request.height, request.rate);
        else if (cvt)
            mode = cvtMode(request.width, request.height, request.rate);
        if (mode)
            addIf(*mode);
    }
}

}  // namespace

void addStandardTimings(const EdidBlock& base, ModeList& list) {
    for (std::size_t i = 0; i < standardCount; ++i)
        addStandard(base, &base[standardByte + 2 * i], list);
    forDescriptors(base, moreStandard, [&](const std::uint8_t* descriptor) {
        for (std::size_t i = 0; i < 6; ++i)
            addStandard(base, descriptor + 5 + 2 * i, list);
    });
}

void addEstablishedTimings(const EdidBlock& base, ModeList& list) {
    for (unsigned bit = 0; bit < establishedCount; ++bit)
        if (base[establishedByte + bit / 8] & (0x80U >> bit % 8))
            list.add(establishedMode(bit));
    forDescriptors(base, moreEstablished, [&](const std::uint8_t* descriptor) {
        for (std::size_t bit = 0; bit < std::size(establishedThree); ++bit) {
            const Request& wanted = establishedThree[bit];
            if (!(descriptor[6 + bit / 8] & (0x80U >> bit % 8)))
                continue;
            if (const DisplayMode* mode =
                    findDmt(wanted.width, wanted.height, wanted.rate, wanted.reducedBlanking))
                list.add(*mode);
        }
    });
}

void addCoordinatedTimings(const EdidBlock& base, ModeList& list) {
    constexpr unsigned rates[] = {60, 85, 75, 60, 50};
    constexpr Request shapes[] = {
        {4, 3, 0, false}, {16, 9, 0, false}, {16, 10, 0, false}, {15, 9, 0, false}};
    forDescriptors(base, coordinated, [&](const std::uint8_t* descriptor) {
        for (std::size_t i = 0; i < 4; ++i) {
            const std::uint8_t* code = descriptor + 6 + 3 * i;
            if (code[0] == 0 && code[1] == 0 && code[2] == 0)
                continue;
            const unsigned height = unsigned((code[0] | (code[1] & 0xf0) << 4) + 1) * 2;
            const Request& shape = shapes[code[1] >> 2 & 3];
            for (unsigned bit = 1; bit < 5; ++bit)
                if (code[2] & 1U << bit)
                    if (const auto mode =
                            cvtMode(height * shape.width / shape.height, height, rates[bit]))
                        list.add(*mode);
        }
    });
}

void addTimingsInRange(const EdidBlock& base, ModeList& list) {
    forDescriptors(base, rangeLimits, [&](const std::uint8_t* descriptor) {
        // From revision 4 on, bits add 255 to each limit.
        const unsigned more = base[revisionByte] >= 4 ? descriptor[4] : 0;
        const auto limit = [&](std::size_t at, unsigned bit) {
            return descriptor[at] + (more & bit ? 255U : 0U);
        };
        Limits limits{limit(5, 1), limit(6, 2), limit(7, 4), limit(8, 8), 0, descriptor[10]};
        if (descriptor[9] != 0 && descriptor[9] != 255)
            limits.clock_kHz = descriptor[9] * 10000U;
        addWithin(limits, base, list);
    });
}

}  // namespace board
