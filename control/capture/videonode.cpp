#include "control/capture/videonode.h"

#include "control/task/logline.h"

#include <fcntl.h>
#include <sys/select.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace {

UniqueFd failed(const char* what, const std::string& path, int error) {
    logErr(what, " '", path, "': ", error, ", ", strerror(error));
    return {};
}

}  // namespace

UniqueFd openVideoNode(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == -1) {
        return failed("Cannot identify", path, errno);
    }
    if (!S_ISCHR(status.st_mode)) {
        logErr(path, " is no device");
        return {};
    }
    UniqueFd node(open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!node.valid()) {
        return failed("Cannot open", path, errno);
    }
    if (node.get() >= FD_SETSIZE) {  // select could not wait for it
        return failed("Cannot open", path, EMFILE);
    }
    return node;
}
