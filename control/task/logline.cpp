#include "control/task/logline.h"

#include <cstdio>

namespace {

void writeTo(FILE* stream, std::string_view text) {
    // The stream's own lock is held over both steps: a full buffer must not let another line in.
    flockfile(stream);
    fwrite(text.data(), 1, text.size(), stream);
    fflush(stream);
    funlockfile(stream);
}

}  // namespace

void writeOut(std::string_view text) {
    writeTo(stdout, text);
}

void writeErr(std::string_view text) {
    writeTo(stderr, text);
}
