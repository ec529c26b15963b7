// The hardware decoder's own log: its texts come with printf formats. A text without a line end
// gets one.
#pragma once

void mppLog(const char* format, ...) __attribute__((format(printf, 1, 2)));  // standard output
void mppErr(const char* format, ...) __attribute__((format(printf, 1, 2)));  // standard error
