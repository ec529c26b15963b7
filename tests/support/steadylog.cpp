// Prints a log file the way two runs can be compared: without lines that come by chance.
#include "tests/support/logfilter.h"

#include <fstream>
#include <iostream>

int main(int argc, char** argv) {
    std::ifstream file(argc == 2 ? argv[1] : "");
    if (!file) {
        std::cerr << "usage: steadylog LOG, a file that can be read\n";
        return 2;
    }
    std::vector<std::string> log;
    for (std::string line; std::getline(file, line);) {
        log.push_back(line);
    }
    for (const std::string& line : support::steadyLines(log)) {
        std::cout << line << "\n";
    }
    return std::cout.flush() ? 0 : 1;
}
