#include "control/task/firstline.h"

#include "control/task/uniquefd.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr std::size_t longestLine = 255;

}  // namespace

std::string readFirstLine(const std::string& path) {
    // Does not wait for a writer where somebody put a pipe.
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    char text[longestLine];
    std::size_t length = 0;
    while (file.valid() && length < longestLine) {
        const ssize_t count = read(file.get(), text + length, longestLine - length);
        if (count > 0) {
            length += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            break;
        }
    }
    const std::string line(text, length);
    return line.substr(0, line.find('\n'));
}
