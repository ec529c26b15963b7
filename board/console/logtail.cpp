#include "board/console/logtail.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace board::console {

namespace {

constexpr std::size_t longestLine = 16u << 10;
constexpr std::size_t mostBytes = 1u << 20;  // of one call, so that others come in between

// Bytes of the UTF-8 character at `place`; 0 when there is none.
std::size_t characterLength(const std::string& bytes, std::size_t place) {
    const auto byte = [&](std::size_t i) {
        return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0u;
    };
    const unsigned first = byte(place);
    if (first < 0x80)
        return 1;
    const std::size_t length = first >= 0xc2 && first < 0xe0   ? 2
                               : first >= 0xe0 && first < 0xf0 ? 3
                               : first >= 0xf0 && first < 0xf5 ? 4
                                                               : 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte(place + i) & 0xc0) != 0x80)
            return 0;
    const unsigned second = byte(place + 1);
    const bool overlong = (first == 0xe0 && second < 0xa0) || (first == 0xf0 && second < 0x90);
    const bool noCharacter = (first == 0xed && second > 0x9f) || (first == 0xf4 && second > 0x8f);
    return overlong || noCharacter ? 0 : length;
}

}  // namespace

std::string toUtf8(const std::string& bytes) {
    std::string text;
    for (std::size_t place = 0; place < bytes.size();) {
        const std::size_t length = characterLength(bytes, place);
        if (length == 0)
            text += "\xef\xbf\xbd";
        else
            text.append(bytes, place, length);
        place += length == 0 ? 1 : length;
    }
    return text;
}

LogTail::~LogTail() {
    if (file_ >= 0)
        ::close(file_);
}

void LogTail::open() {
    struct stat named {};
    const bool there = ::stat(path_.c_str(), &named) == 0 && S_ISREG(named.st_mode);
    if (file_ >= 0 && there && named.st_ino == inode_ && named.st_size >= place_)
        return;
    if (!there)  // what was read of it so far may go on
        return;
    if (file_ >= 0)
        ::close(file_);
    file_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    inode_ = named.st_ino;
    place_ = 0;
    partial_.clear();
}

std::vector<std::string> LogTail::read() {
    open();
    std::vector<std::string> lines;
    char bytes[16384];
    for (std::size_t total = 0; file_ >= 0 && total < mostBytes;) {
        const ssize_t got = ::pread(file_, bytes, sizeof bytes, place_);
        if (got <= 0)
            break;
        place_ += got;
        total += std::size_t(got);
        for (ssize_t i = 0; i < got; ++i) {
            const bool end = bytes[i] == '\n';
            if (!end)
                partial_ += bytes[i];
            if (end || partial_.size() >= longestLine) {
                lines.push_back(partial_);
                partial_.clear();
            }
        }
    }
    return lines;
}

}  // namespace board::console
