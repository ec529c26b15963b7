// What a fuzzer's input stands in: a file in memory for the one fixed path that the code reads, and
// a log that goes nowhere. An input costs microseconds, so no path is looked up and no line leaves
// the process.
#pragma once

#include <cstddef>
#include <string>

namespace fuzzbench {

// Before the first input: from now on open() and access() of `path` mean the file in memory, and
// standard output is thrown away. `path` must stay.
void standFor(const char* path);

void writeFile(const void* data, std::size_t size);
std::string readFile();

// Ends the run with `what` when it does not hold: a finding.
void require(bool truth, const char* what);

}  // namespace fuzzbench
