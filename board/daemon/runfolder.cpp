#include "board/daemon/runfolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace board {

namespace fs = std::filesystem;

namespace {

// The lock file's descriptor, or -1 when it was removed by its last holder just now.
int lockOnce(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0)
        throw std::runtime_error(path + ": " + std::generic_category().message(errno));
    struct stat status {};
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        throw std::runtime_error(fs::path(path).parent_path().string() +
                                 ": a virtual board runs in this folder already");
    }
    if (::fstat(fd, &status) == 0 && status.st_nlink > 0)
        return fd;
    ::close(fd);
    return -1;
}

}  // namespace

RunFolder::RunFolder(const std::string& path) {
    std::error_code error;
    const fs::path whole = fs::absolute(path, error).lexically_normal();
    fs::create_directories(whole, error);
    if (!fs::is_directory(whole))
        throw std::runtime_error(path + ": cannot be used as a folder" +
                                 (error ? ": " + error.message() : ""));
    path_ = whole.string();
    while (path_.size() > 1 && path_.back() == '/')
        path_.pop_back();
    lockPath_ = path_ + "/lock";
    while (lock_ < 0)
        lock_ = lockOnce(lockPath_);
}

RunFolder::~RunFolder() {
    ::unlink(lockPath_.c_str());
    ::close(lock_);
}

}  // namespace board
