#include "control/task/shell.h"

#include "control/task/logline.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

void runShell(const std::string& command) {
    fflush(stdout);
    if (std::system(command.c_str()) == -1) {
        const int error = errno;
        logErr("shell: cannot run '", command, "': ", error, ", ", std::strerror(error));
    }
}
