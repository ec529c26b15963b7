#include "control/task/mediatypes.h"

#include <ostream>

bool uvcFmt::cmp_fps(const uvcFmt& a, const uvcFmt& b) {
    return a.fps > b.fps;
}

bool uvcFmt::cmp_totalBandwidth(const uvcFmt& a, const uvcFmt& b) {
    return a.width * a.height * a.fps > b.width * b.height * b.fps;
}

std::ostream& operator<<(std::ostream& out, const uvcFmt& mode) {
    if (mode.fmt.fourcc != uvcFmt::notACameraMode) {
        out << mode.fmt.name << mode.width << 'x' << mode.height << '@' << mode.fps << '\n';
    }
    return out;
}
