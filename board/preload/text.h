// Strings without libc (whose functions sanitizers intercept).
#pragma once

#include <cstddef>

namespace board::preload {

constexpr std::size_t length(const char* text) {
    std::size_t count = 0;
    while (text[count] != '\0')
        ++count;
    return count;
}

constexpr bool equal(const char* one, const char* other) {
    while (*one != '\0' && *one == *other) {
        ++one;
        ++other;
    }
    return *one == *other;
}

constexpr bool startsWith(const char* text, const char* start) {
    while (*start != '\0' && *text == *start) {
        ++text;
        ++start;
    }
    return *start == '\0';
}

// Builds a string in a buffer of the caller's; always terminated.
class Text {
  public:
    Text(char* buffer, std::size_t size) : buffer_(buffer), size_(size) { buffer_[0] = '\0'; }

    Text& add(const char* more) {
        while (*more != '\0' && length_ + 1 < size_)
            buffer_[length_++] = *more++;
        buffer_[length_] = '\0';
        whole_ = whole_ && *more == '\0';
        return *this;
    }
    bool whole() const { return whole_; }  // nothing was cut off
    std::size_t length() const { return length_; }

  private:
    char* buffer_;
    std::size_t size_;
    std::size_t length_ = 0;
    bool whole_ = true;
};

}  // namespace board::preload
