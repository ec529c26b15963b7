#include "tests/board/preload/client.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <initializer_list>

std::int64_t machineNow_ms() {
    timespec now{};
    ::syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

int main(int count, char** arguments) {
    const char* wanted = count > 1 ? arguments[1] : "";
    for (const Case* table : {deviceCases, descriptorCases, waitCases, parkCases, timeCases})
        for (; table->name != nullptr; ++table)
            if (std::strcmp(table->name, wanted) == 0) {
                table->run();
                return failures() == 0 ? 0 : 1;
            }
    std::fprintf(stderr, "no case '%s'\n", wanted);
    return 2;
}
