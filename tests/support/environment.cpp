#include "tests/support/environment.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace support {

namespace {

std::string fromEnvironment(const char* name, const char* otherwise) {
    const char* text = std::getenv(name);
    return text != nullptr ? text : otherwise;
}

double factorFromEnvironment() {
    if (const char* text = std::getenv("TEST_TIME_FACTOR")) {
        const double factor = std::atof(text);
        if (factor > 0) {
            return factor;
        }
    }
    return sanitizedBuild() ? 4 : 1;
}

}  // namespace

std::string sanitizer() {
    return fromEnvironment("TEST_SANITIZE", TEST_SANITIZE);
}

bool sanitizedBuild() {
    return !sanitizer().empty();
}

double timeFactor() {
    static const double factor = factorFromEnvironment();
    return factor;
}

Milliseconds scaled(Milliseconds patience) {
    return Milliseconds(static_cast<std::int64_t>(double(patience.count()) * timeFactor()));
}

bool longRun() {
    const char* text = std::getenv("TEST_LONG");
    return text != nullptr && std::string(text) == "1";
}

std::string applicationPath() {
    return fromEnvironment("TEST_APPLICATION", TEST_APPLICATION);
}

std::string daemonPath() {
    return fromEnvironment("TEST_BOARD_DAEMON", TEST_BOARD_DAEMON);
}

std::string preloadPath() {
    return TEST_BOARD_PRELOAD;
}

std::string consolePath() {
    return TEST_CONSOLE;
}

std::string sourcePath(const std::string& relative) {
    return std::string(TEST_SOURCE_DIR) + "/" + relative;
}

std::string makeTemporaryFolder(const std::string& prefix) {
    std::string form = (std::filesystem::temp_directory_path() / (prefix + "XXXXXX")).string();
    if (mkdtemp(form.data()) == nullptr) {
        throw std::runtime_error("cannot make a temporary folder like " + form);
    }
    return form;
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

}  // namespace support
