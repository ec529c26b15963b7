// Version files and the like: one short line of text.
#pragma once

#include <string>

// The file's first line without its end, at most 255 characters of it; empty when there is none or
// the file cannot be read.
std::string readFirstLine(const std::string& path);
