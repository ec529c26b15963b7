// virtual-board: the hardware that a developer's machine does not have.

#include "board/daemon/daemon.h"
#include "board/daemon/rootfiles.h"
#include "board/daemon/runfolder.h"
#include "board/daemon/scenario.h"

#include <getopt.h>
#include <sched.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace {

constexpr char usage[] =
    "usage: virtual-board --run FOLDER --scenario NAME_OR_PATH [--speed 1..10] [--data FOLDER]\n";

struct Options {
    std::string run, scenario, speed, data;
    bool help = false;
};

Options readOptions(int argc, char** argv) {
    const option known[] = {
        {"run", required_argument, nullptr, 'r'},   {"scenario", required_argument, nullptr, 's'},
        {"speed", required_argument, nullptr, 'x'}, {"data", required_argument, nullptr, 'd'},
        {"help", no_argument, nullptr, 'h'},        {nullptr, 0, nullptr, 0}};
    Options options;
    opterr = 0;
    for (int letter = 0; (letter = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        switch (letter) {
            case 'r':
                options.run = optarg;
                break;
            case 's':
                options.scenario = optarg;
                break;
            case 'x':
                options.speed = optarg;
                break;
            case 'd':
                options.data = optarg;
                break;
            case 'h':
                options.help = true;
                break;
            default:
                throw std::runtime_error(std::string("cannot use \"") + argv[optind - 1] +
                                         "\"; see virtual-board --help");
        }
    }
    if (optind < argc)
        throw std::runtime_error(std::string("what is \"") + argv[optind] +
                                 "\"? See virtual-board --help");
    if (!options.help && (options.run.empty() || options.scenario.empty()))
        throw std::runtime_error("--run and --scenario are needed; see virtual-board --help");
    return options;
}

board::Scenario loadChosen(const Options& options) {
    if (!options.data.empty())
        board::setScenarioFolder(options.data);
    board::Scenario scenario = board::loadScenario(board::findScenario(options.scenario));
    if (!options.speed.empty()) {
        const std::string& text = options.speed;
        if (text.find_first_not_of("0123456789") != std::string::npos || text.size() > 2 ||
            std::stoi(text) < 1 || std::stoi(text) > 10)
            throw std::runtime_error("--speed " + text + ": must be 1 to 10");
        scenario.speed = std::uint32_t(std::stoi(text));
    }
    return scenario;
}

// Blocked before any thread starts, so that they arrive at this descriptor only.
int watchSignals(board::EventLoop& loop) {
    sigset_t endSignals;
    sigemptyset(&endSignals);
    sigaddset(&endSignals, SIGTERM);
    sigaddset(&endSignals, SIGINT);
    sigprocmask(SIG_BLOCK, &endSignals, nullptr);
    signal(SIGPIPE, SIG_IGN);
    const int fd = signalfd(-1, &endSignals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (fd < 0)
        throw std::runtime_error("signalfd failed");
    loop.watch(fd, EPOLLIN, [&loop](std::uint32_t) { loop.stop(); });
    return fd;
}

// A descriptor for each client's handle, its buffers and its companions.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

// The hardware that it stands for is not late when the machine is busy. Threads that are made from
// here on are ordinary ones; without the right to it the board is as punctual as the machine.
void beRealTime() {
    sched_param lowest{};
    lowest.sched_priority = sched_get_priority_min(SCHED_FIFO);
    sched_setscheduler(0, SCHED_FIFO | SCHED_RESET_ON_FORK, &lowest);
}

void runBoard(const Options& options) {
    const board::Scenario scenario = loadChosen(options);
    const board::RunFolder folder(options.run);
    board::layRootFiles(folder.path(), scenario);
    raiseDescriptorLimit();
    beRealTime();
    board::EventLoop loop;
    const int signals = watchSignals(loop);
    {
        board::Daemon daemon(loop, folder.path(), scenario, [&folder] {
            std::printf("ready %s\n", folder.path().c_str());
            std::fflush(stdout);
        });
        daemon.board().log("scenario " + scenario.name + ", speed " +
                           std::to_string(scenario.speed));
        loop.run();
        daemon.board().log("ends");
    }
    loop.unwatch(signals);
    ::close(signals);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Options options = readOptions(argc, argv);
        if (options.help) {
            std::fputs(usage, stdout);
            return 0;
        }
        runBoard(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "virtual-board: %s\n", error.what());
        return 1;
    }
    return 0;
}
