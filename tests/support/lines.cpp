#include "tests/support/lines.h"
#include "tests/support/pattern.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace support {

Lines::Lines(int readEnd) : readEnd_(readEnd), stopEvent_(eventfd(0, EFD_CLOEXEC)) {
    fcntl(readEnd_, F_SETFL, O_NONBLOCK);
    thread_ = std::thread([this] { read(); });
}

Lines::~Lines() {
    finish();
    close(readEnd_);
    close(stopEvent_);
}

void Lines::finish() {
    if (thread_.joinable()) {
        eventfd_write(stopEvent_, 1);
        thread_.join();
    }
}

// Reads what is there; false at the end of the pipe.
bool Lines::take() {
    char piece[16384];
    for (;;) {
        const ssize_t count = ::read(readEnd_, piece, sizeof piece);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return count < 0 && errno == EAGAIN;
        }
        const std::lock_guard<std::mutex> guard(lock_);
        partial_.append(piece, std::size_t(count));
        std::size_t start = 0;
        for (std::size_t end; (end = partial_.find('\n', start)) != std::string::npos;
             start = end + 1) {
            lines_.push_back(partial_.substr(start, end - start));
        }
        partial_.erase(0, start);
        changed_.notify_all();
    }
}

void Lines::read() {
    pollfd watched[] = {{readEnd_, POLLIN, 0}, {stopEvent_, POLLIN, 0}};
    for (;;) {
        poll(watched, 2, -1);
        if (!take() || (watched[1].revents & POLLIN) != 0) {
            break;
        }
    }
    const std::lock_guard<std::mutex> guard(lock_);
    if (!partial_.empty()) {
        lines_.push_back(partial_);
        partial_.clear();
    }
    closed_ = true;
    changed_.notify_all();
}

std::vector<std::string> Lines::all() const {
    return from(0);
}

std::vector<std::string> Lines::from(std::size_t first) const {
    const std::lock_guard<std::mutex> guard(lock_);
    first = std::min(first, lines_.size());
    return {lines_.begin() + std::ptrdiff_t(first), lines_.end()};
}

std::size_t Lines::size() const {
    const std::lock_guard<std::mutex> guard(lock_);
    return lines_.size();
}

std::string Lines::text() const {
    std::string text;
    for (const std::string& line : all()) {
        text += line + '\n';
    }
    return text;
}

std::optional<std::size_t> Lines::waitFor(const std::function<bool(const std::string&)>& wanted,
                                          Milliseconds patience, std::size_t first) const {
    const auto deadline = Clock::now() + scaled(patience);
    std::unique_lock<std::mutex> guard(lock_);
    for (std::size_t next = first;;) {
        for (; next < lines_.size(); ++next) {
            if (wanted(lines_[next])) {
                return next;
            }
        }
        if (closed_ || changed_.wait_until(guard, deadline) == std::cv_status::timeout) {
            const auto found =
                std::find_if(lines_.begin() + std::ptrdiff_t(std::min(next, lines_.size())),
                             lines_.end(), wanted);
            return found == lines_.end()
                       ? std::nullopt
                       : std::optional<std::size_t>(std::size_t(found - lines_.begin()));
        }
    }
}

std::optional<std::size_t> Lines::waitForExactly(const std::string& line, Milliseconds patience,
                                                 std::size_t first) const {
    return waitFor([&line](const std::string& seen) { return seen == line; }, patience, first);
}

std::optional<std::size_t> Lines::waitForMatch(const std::string& regex, Milliseconds patience,
                                               std::size_t first) const {
    const Pattern form(regex);
    return waitFor([&form](const std::string& seen) { return form.isIn(seen); }, patience, first);
}

std::size_t Lines::count(const std::string& line, std::size_t first) const {
    const std::vector<std::string> seen = from(first);
    return std::size_t(std::count(seen.begin(), seen.end(), line));
}

}  // namespace support
