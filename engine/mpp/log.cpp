// The library's record on standard error, for programs that call it. Not in the public headers.
#include <cstdarg>
#include <cstdio>
#include <string>

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the library's names
void _mpp_log(const char* tag, const char* fmt, const char* func, ...);
void _mpp_err(const char* tag, const char* fmt, const char* func, ...);
void _mpp_log_l(int level, const char* tag, const char* fmt, const char* func, ...);
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

// Composed first and written once: lines of two threads do not mix.
void write(const char* tag, const char* fmt, const char* func, va_list values) {
    if (fmt == nullptr) {
        return;
    }
    char text[1024];
    std::vsnprintf(text, sizeof text, fmt, values);
    std::string line = std::string(tag != nullptr ? tag : "mpp") + ": ";
    if (func != nullptr) {
        line += std::string(func) + " ";
    }
    line += text;
    if (line.back() != '\n') {
        line += '\n';
    }
    std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier)
void _mpp_log(const char* tag, const char* fmt, const char* func, ...) {
    va_list values;
    va_start(values, func);
    write(tag, fmt, func, values);
    va_end(values);
}

void _mpp_err(const char* tag, const char* fmt, const char* func, ...) {
    va_list values;
    va_start(values, func);
    write(tag, fmt, func, values);
    va_end(values);
}

void _mpp_log_l(int, const char* tag, const char* fmt, const char* func, ...) {
    va_list values;
    va_start(values, func);
    write(tag, fmt, func, values);
    va_end(values);
}
// NOLINTEND(bugprone-reserved-identifier)
