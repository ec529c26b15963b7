// Built with the leak detector or with coverage counters; lives until it is told to end.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace {

char* volatile kept = nullptr;

__attribute__((noinline)) void leak() {
    kept = static_cast<char*>(std::malloc(12345));
    std::memset(kept, 1, 12345);
    kept = nullptr;
}

// What the stack still holds of the pointer is overwritten.
__attribute__((noinline)) void scrub() {
    volatile char room[4096];
    for (volatile char& byte : room)
        byte = 0;
}

}  // namespace

int main(int count, char** arguments) {
    if (count > 1 && std::strcmp(arguments[1], "leak") == 0)
        leak();
    scrub();
    if (::open("/dev/video0", O_RDWR) < 0)  // tells the test that this program is in its main
        return 1;
    char byte = 0;
    while (::read(0, &byte, 1) > 0) {
    }
    // Without what an orderly end would report by itself.
    ::_exit(0);
}
