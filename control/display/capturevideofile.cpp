#include "control/display/capturevideofile.h"

#include "control/task/logline.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

FILE* captureFile = nullptr;
int captureCalls = 0;

void reportFailure(const char* step) {
    const int error = errno;
    logErr("capture: cannot ", step, " ./capture: ", error, ", ", std::strerror(error));
}

}  // namespace

int captureVideoFile(char* buf, int size, int limit) {
    if (captureCalls == 0) {
        captureFile = fopen("./capture", "wb+e");
        if (captureFile == nullptr) {
            reportFailure("create");
        }
    }
    if (captureFile != nullptr && size > 0 &&
        fwrite(buf, 1, static_cast<std::size_t>(size), captureFile) !=
            static_cast<std::size_t>(size)) {
        reportFailure("write to");
    }
    logOut("write size = ", size);
    ++captureCalls;
    if (captureCalls >= limit) {
        if (captureFile != nullptr && fclose(captureFile) != 0) {
            reportFailure("write to");
        }
        _exit(0);
    }
    return captureCalls;
}
