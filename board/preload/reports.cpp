#include "board/preload/reports.h"

#include "board/preload/raw.h"
#include "board/preload/run.h"
#include "board/preload/text.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/limits.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <time.h>

#include <cstdlib>

namespace board::preload {

namespace {

constexpr timespec lookEvery = {0, 50000000};  // machine time

template <typename Function>
Function* exported(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_DEFAULT, name));
}

void report(wire::SharedPage& page, std::uint32_t bits) {
    if ((bits & wire::dumpLeaks) != 0)
        if (auto* check = exported<int()>("__lsan_do_recoverable_leak_check"))
            page.leakResult.store(std::uint32_t(check()));
    if ((bits & wire::dumpCoverage) == 0)
        return;
    if (auto* dump = exported<void()>("__gcov_dump"))
        dump();
    // A second dump writes nothing unless the counters start again (the files are added up).
    if (auto* reset = exported<void()>("__gcov_reset"))
        reset();
}

void* watch(void* argument) {
    auto& page = *static_cast<wire::SharedPage*>(argument);
    raw(SYS_prctl, PR_SET_NAME, "board-reports", 0, 0, 0);
    for (;;) {
        const std::uint32_t request = page.dumpRequest.load(std::memory_order_acquire);
        const std::uint32_t generation = request >> 2;
        if (generation != page.dumpDone.load(std::memory_order_acquire)) {
            report(page, request & (wire::dumpLeaks | wire::dumpCoverage));
            page.dumpDone.store(generation, std::memory_order_release);
        }
        raw(SYS_nanosleep, &lookEvery, nullptr);
    }
}

bool isNamed() {
    const char* name = ::getenv(reportsVariable);
    if (name == nullptr || name[0] == '\0')
        return false;
    char path[PATH_MAX];
    const long count = raw(SYS_readlinkat, AT_FDCWD, "/proc/self/exe", path, sizeof path - 1);
    if (count <= 0)
        return false;
    path[count] = '\0';
    long start = count;
    while (start > 0 && path[start - 1] != '/')
        --start;
    return equal(path + start, name);
}

__attribute__((constructor)) void startReports() {
    if (!isNamed() || boardPage() == nullptr)
        return;
    // Every signal is the program's own threads' business.
    const SignalsBlocked blocked;
    pthread_attr_t attributes;
    if (::pthread_attr_init(&attributes) != 0)
        return;
    ::pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread{};
    ::pthread_create(&thread, &attributes, watch, boardPage());
    ::pthread_attr_destroy(&attributes);
}

}  // namespace

}  // namespace board::preload
