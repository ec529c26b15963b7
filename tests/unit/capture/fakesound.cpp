#include "tests/unit/capture/fakesound.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

// Removed with the process.
class TextFolder {
  public:
    TextFolder() {
        char name[] = "/tmp/stream0-XXXXXX";
        path_ = mkdtemp(name);
    }
    ~TextFolder() { std::filesystem::remove_all(path_); }
    TextFolder(const TextFolder&) = delete;
    TextFolder& operator=(const TextFolder&) = delete;

    std::string fileOf(int card) const { return path_ + "/card" + std::to_string(card); }

  private:
    std::string path_;
};

const TextFolder& folder() {
    static const TextFolder instance;
    return instance;
}

}  // namespace

namespace sound {

void reset() {
    for (int card = 0; card < 4; ++card) {
        std::filesystem::remove(folder().fileOf(card));
    }
}

void setText(int card, const std::string& text) {
    std::ofstream(folder().fileOf(card), std::ios::binary) << text;
}

std::string placeOf(const char* path) {
    int card = 0;
    int length = 0;
    const std::string text = path;
    if (std::sscanf(path, "/proc/asound/card%d/stream0%n", &card, &length) != 1 ||
        length != static_cast<int>(text.size())) {
        return "";
    }
    return folder().fileOf(card);
}

}  // namespace sound
