// Texts that a V4L2 driver reports.
#pragma once

#include <linux/videodev2.h>
#include <cstring>
#include <sstream>
#include <string>

// A field of the driver, which need not end with a zero.
template <typename Character, std::size_t N>
std::string fieldText(const Character (&field)[N]) {
    static_assert(sizeof(Character) == 1);
    const char* text = reinterpret_cast<const char*>(field);
    return {text, strnlen(text, N)};
}

// Who the driver says it is: four lines, the last one without its end.
inline std::string capabilityText(const v4l2_capability& capability) {
    const std::uint32_t version = capability.version;
    std::ostringstream text;
    text << "Driver Name:" << fieldText(capability.driver)
         << "\nCard Name:" << fieldText(capability.card)
         << "\nBus info:" << fieldText(capability.bus_info)
         << "\nDriver Version:" << (version >> 16 & 0xFF) << '.' << (version >> 8 & 0xFF) << '.'
         << (version & 0xFF);
    return text.str();
}
