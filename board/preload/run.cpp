#include "board/preload/run.h"

#include "board/preload/handles.h"
#include "board/preload/mappings.h"
#include "board/preload/raw.h"
#include "board/preload/text.h"
#include "board/protocol/wire.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace board::preload {

namespace {

char folder[maxRunFolder];
std::size_t folderLength = 0;
FutexLock attaching;

wire::SharedPage* mapPage() {
    char path[maxRunFolder + 16];
    Text text(path, sizeof path);
    text.add(folder).add("/").add(wire::pageName);
    if (!text.whole())
        return nullptr;
    const long fd = raw(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC, 0);
    if (fd < 0)
        return nullptr;
    struct stat status {};
    long memory = -EINVAL;
    if (raw(SYS_fstat, fd, &status) == 0 && status.st_size >= long(sizeof(wire::SharedPage)))
        memory = raw(SYS_mmap, nullptr, sizeof(wire::SharedPage), PROT_READ | PROT_WRITE,
                     MAP_SHARED, fd, 0);
    raw(SYS_close, fd);
    if (memory < 0 && memory >= -4095)
        return nullptr;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): system calls return addresses as numbers
    auto* page = reinterpret_cast<wire::SharedPage*>(memory);
    if (page->magic == wire::pageMagic && page->version == wire::protocolVersion)
        return page;
    raw(SYS_munmap, page, sizeof(wire::SharedPage));
    return nullptr;
}

// A child of a fork shares the parent's descriptors but must not talk on its connections.
void forked() {
    dropHandlesInChild();
    dropMappingsInChild();
}

wire::SharedPage* join() {
    const char* named = ::getenv(wire::runFolderVariable);
    if (named == nullptr || named[0] == '\0')
        return nullptr;
    Text text(folder, sizeof folder);
    text.add(named);
    if (!text.whole())
        return nullptr;
    folderLength = text.length();
    while (folderLength > 1 && folder[folderLength - 1] == '/')
        folder[--folderLength] = '\0';
    wire::SharedPage* page = mapPage();
    if (page != nullptr)
        ::pthread_atfork(nullptr, nullptr, forked);
    return page;
}

}  // namespace

namespace detail {

std::atomic<std::uintptr_t> page{undecided};

std::uintptr_t attach() {
    // A sanitizer that makes the folder for its reports calls us before libc has been told the
    // environment: nothing can be decided yet.
    if (environ == nullptr)
        return noBoard;
    const Locked locked(attaching);
    std::uintptr_t now = page.load(std::memory_order_acquire);
    if (now == undecided) {
        const wire::SharedPage* found = join();
        now = found == nullptr ? noBoard : reinterpret_cast<std::uintptr_t>(found);
        page.store(now, std::memory_order_release);
    }
    return now;
}

}  // namespace detail

const char* runFolder() {
    return folder;
}

std::size_t runFolderLength() {
    return folderLength;
}

}  // namespace board::preload
