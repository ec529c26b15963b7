#include "control/display/drmcard.h"

#include "control/task/logline.h"

#include <fcntl.h>
#include <cerrno>
#include <cstring>

UniqueFd openDrmCard() {
    return UniqueFd(open("/dev/dri/card0", O_RDWR | O_CLOEXEC));
}

void reportDrmFailure(const char* step) {
    const int error = errno;
    logErr("display: cannot ", step, ": ", error, ", ", std::strerror(error));
}
