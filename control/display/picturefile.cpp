#include "control/display/picturefile.h"

#include "control/task/logline.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

PictureFile::PictureFile(std::string filePath)
    : path(std::move(filePath)),
      // Does not wait for a writer where somebody put a pipe.
      file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    if (file.valid()) {
        bytes = lseek(file.get(), 0, SEEK_END);
    }
    if (bytes < 0) {
        openError = errno;
    }
}

bool PictureFile::read(unsigned char* out, std::size_t expected) {
    if (bytes < 0) {
        logErr("picture ", path, ": cannot be opened: ", openError, ", ", std::strerror(openError),
               "; ", expected, " bytes are expected there, nothing is shown of it");
        return false;
    }
    std::size_t taken = 0;
    if (static_cast<std::uint64_t>(bytes) == expected) {
        lseek(file.get(), 0, SEEK_SET);
        while (taken < expected) {
            const ssize_t count = ::read(file.get(), out + taken, expected - taken);
            if (count > 0) {
                taken += static_cast<std::size_t>(count);
            } else if (count == 0 || errno != EINTR) {
                break;
            }
        }
    }
    if (taken != expected) {
        logErr("picture ", path, ": ", bytes, " bytes, of which ", taken, " were read; ", expected,
               " are expected, nothing is shown of it");
    }
    return taken == expected;
}
