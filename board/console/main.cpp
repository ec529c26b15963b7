// board-console: the board in a browser.

#include "board/console/httpfront.h"
#include "board/console/liveviews.h"
#include "board/console/reception.h"
#include "board/console/reporter.h"
#include "board/daemon/jsonfields.h"
#include "board/daemon/jsonreader.h"

#include <getopt.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace {

namespace console = board::console;

constexpr char usage[] =
    "usage: board-console --board FOLDER --log FILE --err FILE [--port N] [--page DIR] "
    "[--log-lines FILE]\n";
constexpr int politeness = 5;  // the application goes before

struct Options {
    std::string board, log, err, port = "8471";
    std::string page = CONSOLE_PAGE_FOLDER, logLines = CONSOLE_LOG_LINES;
    bool help = false;
};

Options readOptions(int argc, char** argv) {
    Options options;
    const option known[] = {
        {"board", required_argument, nullptr, 'b'}, {"log", required_argument, nullptr, 'l'},
        {"err", required_argument, nullptr, 'e'},   {"port", required_argument, nullptr, 'p'},
        {"page", required_argument, nullptr, 'd'},  {"log-lines", required_argument, nullptr, 'm'},
        {"help", no_argument, nullptr, 'h'},        {nullptr, 0, nullptr, 0}};
    const auto place = [&options](int letter) -> std::string* {
        switch (letter) {
            case 'b':
                return &options.board;
            case 'l':
                return &options.log;
            case 'e':
                return &options.err;
            case 'p':
                return &options.port;
            case 'd':
                return &options.page;
            case 'm':
                return &options.logLines;
            default:
                return nullptr;
        }
    };
    opterr = 0;
    for (int letter = 0; (letter = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        if (letter == 'h')
            options.help = true;
        else if (std::string* value = place(letter))
            *value = optarg;
        else
            throw std::runtime_error(std::string("cannot use \"") + argv[optind - 1] +
                                     "\"; see board-console --help");
    }
    if (optind < argc)
        throw std::runtime_error(std::string("what is \"") + argv[optind] +
                                 "\"? See board-console --help");
    if (!options.help && (options.board.empty() || options.log.empty() || options.err.empty()))
        throw std::runtime_error("--board, --log and --err are needed; see board-console --help");
    return options;
}

int listenOn(const std::string& port) {
    std::int64_t number = 0;
    if (!board::parseInteger(port, number) || number < 0 || number > 65535)
        throw std::runtime_error("--port " + port + ": must be 0 to 65535");
    const int socket = console::listenOnLoopback(static_cast<unsigned short>(number));
    if (socket < 0)
        throw std::runtime_error("port " + port + ": " + std::strerror(errno));
    return socket;
}

std::string logLinesJson(const console::LogLines& lines) {
    std::string list;
    for (const console::LogLine& line : lines.entries()) {
        board::JsonFields entry;
        entry.add("pattern", line.pattern).add("kind", line.kind);
        entry.add("meaning", line.meaning).add("todo", line.todo);
        list += (list.empty() ? "" : ",\n") + entry.object();
    }
    return "[" + list + "]\n";
}

// A folder that goes with the object.
class TemporaryFolder {
  public:
    TemporaryFolder() : path_(std::filesystem::temp_directory_path() / "console.XXXXXX") {
        if (::mkdtemp(path_.data()) == nullptr)
            throw std::runtime_error("no folder under " + path_ + ": " + std::strerror(errno));
    }
    ~TemporaryFolder() {
        std::error_code error;
        std::filesystem::remove_all(path_, error);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

void waitForEnd(const sigset_t& endSignals) {
    int number = 0;
    while (sigwait(&endSignals, &number) != 0) {
    }
}

void runConsole(const Options& options, const sigset_t& endSignals) {
    const console::PageFiles page(options.page);
    const console::LogLines lines = console::LogLines::fromFile(options.logLines);
    const TemporaryFolder folder;
    const console::OrderClient orders(options.board);
    const console::OrderGate gate([&orders] { return orders.catalogueNames(); });
    console::Bulletin bulletin;
    console::LiveViews views(options.board, [&bulletin] { return bulletin.hasReaders(); });
    const int listening = listenOn(options.port);
    const unsigned short port = console::portOf(listening);
    console::HttpFront front(
        {page, orders, gate, bulletin, views, logLinesJson(lines), folder.path()}, port);
    const console::Reporter reporter({options.log, options.err, orders, lines, views.age(),
                                      [&views] { return views.soundLevels(); }},
                                     bulletin);
    const console::Reception reception(
        listening, console::ReceptionLimits(),
        [&front](int socket, std::string received) { front.serve(socket, std::move(received)); });
    std::printf("console: http://127.0.0.1:%u/\n", unsigned(port));
    std::fflush(stdout);
    waitForEnd(endSignals);
    front.endStreams();
}

}  // namespace

int main(int argc, char** argv) {
    // Before any thread begins, so that none of them takes the signal.
    sigset_t endSignals;
    sigemptyset(&endSignals);
    sigaddset(&endSignals, SIGTERM);
    sigaddset(&endSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &endSignals, nullptr);
    signal(SIGPIPE, SIG_IGN);
    try {
        const Options options = readOptions(argc, argv);
        if (options.help) {
            std::fputs(usage, stdout);
            return 0;
        }
        if (::nice(politeness) < 0)
            std::fputs("board-console: cannot step back behind other programs\n", stderr);
        runConsole(options, endSignals);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "board-console: %s\n", error.what());
        return 1;
    }
    return 0;
}
