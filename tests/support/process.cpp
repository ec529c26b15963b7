#include "tests/support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace support {

namespace {

struct Pipe {
    int ends[2] = {-1, -1};
    Pipe() {
        if (pipe2(ends, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe left");
        }
    }
};

std::vector<std::string> mergedEnvironment(const std::map<std::string, std::string>& added) {
    std::map<std::string, std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        merged[text.substr(0, text.find('='))] = text.substr(text.find('=') + 1);
    }
    for (const auto& [name, value] : added) {
        merged[name] = value;
    }
    std::vector<std::string> lines;
    for (const auto& [name, value] : merged) {
        lines.push_back(name + "=" + value);
    }
    return lines;
}

std::vector<char*> pointers(const std::vector<std::string>& texts) {
    std::vector<char*> list;
    for (const std::string& text : texts) {
        list.push_back(const_cast<char*>(text.c_str()));
    }
    list.push_back(nullptr);
    return list;
}

// In the child, between fork and exec: only calls that are safe there.
[[noreturn]] void becomeProgram(const Process::Start& start, const std::vector<char*>& command,
                                const std::vector<char*>& environment, const int streams[3],
                                pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (int i = 0; i < 3; ++i) {
        if (dup2(streams[i], i) < 0) {
            _exit(126);
        }
    }
    if (getppid() != parent || (!start.folder.empty() && chdir(start.folder.c_str()) != 0)) {
        _exit(126);
    }
    execvpe(command[0], command.data(), environment.data());
    _exit(127);
}

}  // namespace

Process::Process(const Start& start) {
    const std::vector<std::string> variables = mergedEnvironment(start.environment);
    const std::vector<char*> command = pointers(start.command);
    const std::vector<char*> environment = pointers(variables);
    const Pipe output, errors, input;
    int source = input.ends[0];
    if (!start.keepInput) {
        source = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    const int streams[3] = {source, output.ends[1], errors.ends[1]};
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0) {
        becomeProgram(start, command, environment, streams, parent);
    }
    if (!start.keepInput) {
        close(source);
        close(input.ends[1]);
    } else {
        input_ = input.ends[1];
    }
    close(input.ends[0]);
    close(output.ends[1]);
    close(errors.ends[1]);
    if (pid_ < 0) {
        throw std::runtime_error("cannot start " + start.command.front());
    }
    pidDescriptor_ = int(syscall(SYS_pidfd_open, pid_, 0));
    out_ = std::make_unique<Lines>(output.ends[0]);
    err_ = std::make_unique<Lines>(errors.ends[0]);
}

Process::~Process() {
    if (running()) {
        signal(SIGKILL);
        waitForEnd(Milliseconds(10000));
    }
    closeInput();
    close(pidDescriptor_);
}

void Process::closeInput() {
    if (input_ >= 0) {
        close(input_);
        input_ = -1;
    }
}

void Process::signal(int number) {
    if (!status_) {
        kill(pid_, number);
    }
}

bool Process::running() {
    return !waitForEnd(Milliseconds(0)).has_value();
}

std::optional<int> Process::waitForEnd(Milliseconds patience) {
    if (status_) {
        return status_;
    }
    pollfd watched{pidDescriptor_, POLLIN, 0};
    if (poll(&watched, 1, int(scaled(patience).count())) != 1) {
        return std::nullopt;
    }
    int status = 0;
    if (waitpid(pid_, &status, 0) == pid_) {
        status_ = status;
        out_->finish();
        err_->finish();
    }
    return status_;
}

ProcessFigures Process::figures() const {
    const std::string place = "/proc/" + std::to_string(pid_);
    const auto entries = [&place](const char* name) {
        std::error_code ignored;
        const std::filesystem::directory_iterator folder(place + name, ignored);
        return unsigned(std::distance(begin(folder), end(folder)));
    };
    ProcessFigures figures;
    figures.descriptors = entries("/fd");
    figures.threads = entries("/task");
    std::ifstream maps(place + "/maps");
    for (std::string line; std::getline(maps, line);) {
        ++figures.mappings;
        figures.deviceMappings += line.find("/memfd:") != std::string::npos ? 1 : 0;
    }
    // The program's name in the second field may hold blanks: count from the closing parenthesis.
    const std::string stat = readFile(place + "/stat");
    std::istringstream fields(stat.substr(std::min(stat.rfind(')') + 1, stat.size())));
    std::string skipped;
    for (int field = 3; field < 14; ++field) {
        fields >> skipped;
    }
    double user = 0, system = 0;
    fields >> user >> system;
    figures.cpu_s = (user + system) / double(sysconf(_SC_CLK_TCK));
    std::istringstream memory(readFile(place + "/statm"));
    std::uint64_t total = 0, resident = 0;
    memory >> total >> resident;
    figures.resident_kB = resident * std::uint64_t(sysconf(_SC_PAGESIZE)) / 1024;
    return figures;
}

std::vector<std::string> Process::threadNames() const {
    std::vector<std::string> names;
    std::error_code error;
    const std::filesystem::directory_iterator tasks("/proc/" + std::to_string(pid_) + "/task",
                                                    error);
    for (const auto& task : tasks) {
        std::string name = readFile(task.path() / "comm");
        if (!name.empty()) {
            name.pop_back();
            names.push_back(name);
        }
    }
    return names;
}

std::vector<std::string> Process::descriptorTargets() const {
    std::vector<std::string> targets;
    std::error_code error;
    const std::filesystem::directory_iterator descriptors("/proc/" + std::to_string(pid_) + "/fd",
                                                          error);
    for (const auto& descriptor : descriptors) {
        std::error_code gone;
        targets.push_back(std::filesystem::read_symlink(descriptor.path(), gone).string());
    }
    return targets;
}

std::string describeStatus(int status) {
    if (WIFEXITED(status)) {
        return "exit " + std::to_string(WEXITSTATUS(status));
    }
    return "signal " + std::to_string(WTERMSIG(status));
}

}  // namespace support
