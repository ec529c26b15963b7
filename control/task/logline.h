// The log: a line is composed first and written once, with its end, and flushed, so that lines of
// different threads never mix and a service's journal sees each at once.
#pragma once

#include <sstream>
#include <string_view>

// Writes the text as it is, by length (it may hold a zero byte), and flushes.
void writeOut(std::string_view text);  // standard output
void writeErr(std::string_view text);  // standard error

template <typename... Pieces>
std::string composeLine(const Pieces&... pieces) {
    std::ostringstream line;
    (line << ... << pieces);
    line << '\n';
    return line.str();
}

// One line made of the pieces, in the plain form of operator<<; the line end is added.
template <typename... Pieces>
void logOut(const Pieces&... pieces) {
    writeOut(composeLine(pieces...));
}

template <typename... Pieces>
void logErr(const Pieces&... pieces) {
    writeErr(composeLine(pieces...));
}
