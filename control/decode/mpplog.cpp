#include "control/decode/mpplog.h"

#include "control/task/logline.h"

#include <cstdarg>
#include <cstdio>
#include <string>

namespace {

constexpr std::size_t longestLine = 512;  // far more than the longest text with its numbers

std::string compose(const char* format, va_list values) {
    char text[longestLine] = "";
    vsnprintf(text, sizeof text, format, values);
    std::string line(text);
    if (line.empty() || line.back() != '\n') {
        line += '\n';
    }
    return line;
}

}  // namespace

void mppLog(const char* format, ...) {
    va_list values;
    va_start(values, format);
    writeOut(compose(format, values));
    va_end(values);
}

void mppErr(const char* format, ...) {
    va_list values;
    va_start(values, format);
    writeErr(compose(format, values));
    va_end(values);
}
