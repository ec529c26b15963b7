#include "tests/unit/display/fakefiles.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>
#include <filesystem>
#include <fstream>

namespace {

FakeFiles* current = nullptr;

}  // namespace

FakeFiles::FakeFiles() {
    char name[] = "/tmp/systemfiles-XXXXXX";
    folder = mkdtemp(name);
    std::filesystem::create_directories(folder + "/userdata");
    std::filesystem::create_directories(folder + "/usr/bin");
    current = this;
}

FakeFiles::~FakeFiles() {
    current = nullptr;
    std::filesystem::remove_all(folder);
}

void FakeFiles::write(const std::string& path, const std::string& content) {
    std::ofstream(real(path), std::ios::binary | std::ios::trunc) << content;
}

bool FakeFiles::exists(const std::string& path) const {
    return std::filesystem::exists(real(path));
}

std::string FakeFiles::located(const char* path) {
    const std::string text = path;
    if (text.rfind("/userdata/", 0) != 0 && text.rfind("/usr/bin/", 0) != 0) {
        return text;
    }
    return current == nullptr ? "/nowhere" + text : current->real(text);
}

void FakeFiles::command(const char* text) {
    ASSERT_NE(current, nullptr) << "a command ran without need: " << text;
    current->commands.emplace_back(text);
}

extern "C" {

int __real_access(const char* path, int mode);
int __wrap_access(const char* path, int mode) {
    return __real_access(FakeFiles::located(path).c_str(), mode);
}

int __real_unlink(const char* path);
int __wrap_unlink(const char* path) {
    return __real_unlink(FakeFiles::located(path).c_str());
}

int __wrap_system(const char* command) {
    FakeFiles::command(command);
    return 0;
}

}  // extern "C"
