// boardctl: orders to a virtual board from the command line.

#include "board/ctl/orderline.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr char usage[] = "usage: boardctl [--board FOLDER] [--json] ORDER [ARGUMENTS...]\n";

struct Options {
    std::string board;
    bool json = false;
    std::vector<std::string> words;
};

// False when an option is wrong; then a line was printed.
bool readOptions(int argc, char** argv, Options& options) {
    const char* folder = std::getenv("VIRTUAL_BOARD");
    options.board = folder != nullptr ? folder : "";
    int next = 1;
    // Options stand before the order: an order's arguments may begin with a dash (-3600000).
    for (; next < argc && std::strncmp(argv[next], "--", 2) == 0; ++next) {
        const std::string option = argv[next];
        if (option == "--json") {
            options.json = true;
        } else if (option == "--help") {
            options.words.push_back("help");
        } else if (option == "--board" && next + 1 < argc) {
            options.board = argv[++next];
        } else {
            std::fprintf(stderr, "boardctl: cannot use %s; see boardctl help\n", argv[next]);
            return false;
        }
    }
    options.words.insert(options.words.end(), argv + next, argv + argc);
    return true;
}

int runOrder(const Options& options) {
    std::string line, error;
    if (!boardctl::composeOrder(options.words, line, error)) {
        std::fprintf(stderr, "boardctl: %s\n", error.c_str());
        return 2;
    }
    if (options.board.empty()) {
        std::fputs("boardctl: which board? Set VIRTUAL_BOARD or use --board FOLDER\n", stderr);
        return 1;
    }
    std::string answer;
    if (!boardctl::exchange(options.board, line, answer, error)) {
        std::fprintf(stderr, "boardctl: %s\n", error.c_str());
        return 1;
    }
    std::string text;
    const bool done = boardctl::readAnswer(answer, text);
    if (options.json)
        std::printf("%s\n", answer.c_str());
    else if (done)
        std::fputs(text.c_str(), stdout);
    else
        std::fprintf(stderr, "boardctl: %s\n", text.c_str());
    return done ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!readOptions(argc, argv, options))
        return 2;
    if (options.words.empty()) {
        std::fputs(usage, stderr);
        return 2;
    }
    if (options.words.front() == "help") {
        std::printf("%s\n%s", usage, boardctl::helpText().c_str());
        return 0;
    }
    return runOrder(options);
}
