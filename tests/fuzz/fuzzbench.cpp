#include "tests/fuzz/fuzzbench.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace fuzzbench {

namespace {

const char* fixedPath = nullptr;
int descriptors[3];  // of the file in memory, by access mode

bool isFixed(const char* path) {
    return fixedPath != nullptr && std::strcmp(path, fixedPath) == 0;
}

// As a new opening has it: at the beginning, closed by its owner.
int openFixed(int flags) {
    const int file = descriptors[flags & O_ACCMODE];
    require((flags & O_EXCL) == 0 && lseek(file, 0, SEEK_SET) == 0, "an opening");
    require((flags & O_TRUNC) == 0 || ftruncate(file, 0) == 0, "an opening that empties");
    return fcntl(file, F_DUPFD_CLOEXEC, 0);
}

ssize_t nowhere(void* /*cookie*/, const char* /*text*/, std::size_t size) {
    return static_cast<ssize_t>(size);
}

}  // namespace

void require(bool truth, const char* what) {
    if (!truth) {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

void standFor(const char* path) {
    const std::string memory =
        "/proc/self/fd/" + std::to_string(memfd_create("input", MFD_CLOEXEC));
    for (const int mode : {O_RDONLY, O_WRONLY, O_RDWR}) {
        descriptors[mode] = open(memory.c_str(), mode | O_CLOEXEC);
        require(descriptors[mode] >= 0, "the bench's file");
    }
    fixedPath = path;
    cookie_io_functions_t functions{};
    functions.write = nowhere;
    FILE* const quiet = fopencookie(nullptr, "w", functions);
    require(quiet != nullptr, "the bench's log");
    stdout = quiet;
}

void writeFile(const void* data, std::size_t size) {
    const int file = descriptors[O_RDWR];
    require(pwrite(file, data, size, 0) == static_cast<ssize_t>(size) &&
                ftruncate(file, static_cast<off_t>(size)) == 0,
            "the bench's file");
}

std::string readFile() {
    struct stat status {};
    require(fstat(descriptors[O_RDWR], &status) == 0, "the bench's file");
    std::string content(static_cast<std::size_t>(status.st_size), '\0');
    const ssize_t got = pread(descriptors[O_RDWR], content.data(), content.size(), 0);
    require(got == status.st_size, "the bench's file");
    return content;
}

}  // namespace fuzzbench

extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_access(const char* path, int mode);

int __wrap_open(const char* path, int flags, ...) {
    if (fuzzbench::isFixed(path)) {
        return fuzzbench::openFixed(flags);
    }
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = va_arg(rest, mode_t);
    va_end(rest);
    return __real_open(path, flags, mode);
}

int __wrap_access(const char* path, int mode) {
    return fuzzbench::isFixed(path) ? 0 : __real_access(path, mode);
}

}  // extern "C"
