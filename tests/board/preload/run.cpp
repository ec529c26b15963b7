#include "tests/board/preload/run.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int deadline_ms = 60000;

std::string variableName(const std::string& entry) {
    return entry.substr(0, entry.find('='));
}

[[noreturn]] void start(const std::string& folder, const std::vector<std::string>& command,
                        const std::vector<std::string>& environment, int out, int err) {
    ::dup2(out, 1);
    ::dup2(err, 2);
    ::setpgid(0, 0);
    ::setenv("LD_PRELOAD", CLIENT_LIBRARY, 1);
    if (folder.empty())
        ::unsetenv("VIRTUAL_BOARD");
    else
        ::setenv("VIRTUAL_BOARD", folder.c_str(), 1);
    for (const std::string& entry : environment)
        ::setenv(variableName(entry).c_str(), entry.c_str() + variableName(entry).size() + 1, 1);
    std::vector<char*> arguments;
    for (const std::string& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    ::execvp(arguments[0], arguments.data());
    ::_exit(127);
}

std::string content(int fd) {
    std::string text;
    char bytes[4096];
    off_t at = 0;
    for (ssize_t got = 0; (got = ::pread(fd, bytes, sizeof bytes, at)) > 0; at += got)
        text.append(bytes, std::size_t(got));
    ::close(fd);
    return text;
}

}  // namespace

Result runClient(const std::string& folder, const std::vector<std::string>& command,
                 const std::vector<std::string>& environment) {
    // Not pipes: children of the program may hold them longer than it lives.
    const int out = ::memfd_create("out", MFD_CLOEXEC);
    const int err = ::memfd_create("err", MFD_CLOEXEC);
    const pid_t child = ::fork();
    if (child == 0)
        start(folder, command, environment, out, err);
    const int process = int(::syscall(SYS_pidfd_open, child, 0));
    pollfd ended = {process, POLLIN, 0};
    const bool late = ::poll(&ended, 1, deadline_ms) == 0;
    if (late)
        ::kill(-child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(process);
    Result result;
    result.code = late ? -1 : WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = content(out);
    result.err = content(err);
    return result;
}
