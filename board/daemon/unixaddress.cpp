#include "board/daemon/unixaddress.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace board {

UnixAddress::UnixAddress(const std::string& path) {
    address_.sun_family = AF_UNIX;
    std::string usable = path;
    if (path.size() >= sizeof address_.sun_path) {
        const std::filesystem::path whole(path);
        folder_ = ::open(whole.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (folder_ < 0)
            throw std::system_error(errno, std::generic_category(), path);
        usable = "/proc/self/fd/" + std::to_string(folder_) + "/" + whole.filename().string();
    }
    if (usable.size() >= sizeof address_.sun_path) {
        ::close(folder_);
        throw std::system_error(ENAMETOOLONG, std::generic_category(), path);
    }
    std::memcpy(address_.sun_path, usable.c_str(), usable.size() + 1);
}

UnixAddress::~UnixAddress() {
    if (folder_ >= 0)
        ::close(folder_);
}

}  // namespace board
