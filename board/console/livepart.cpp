#include "board/console/livepart.h"

#include <cstdio>

namespace board::console {

std::string LivePart::text() const {
    std::string part = "Content-Type: image/jpeg\r\nContent-Length: " + std::to_string(jpeg.size());
    if (frame)
        part += "\r\nX-Frame: " + std::to_string(*frame);
    if (age_ms) {
        char number[32];
        std::snprintf(number, sizeof number, "%.1f", *age_ms);
        part += std::string("\r\nX-Age-Ms: ") + number;
    }
    part += "\r\nX-Size: " + std::to_string(width) + "x" + std::to_string(height) + "\r\n\r\n";
    return part + jpeg + "\r\n" + liveBeginning;
}

}  // namespace board::console
