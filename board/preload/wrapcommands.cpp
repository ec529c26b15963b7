// Shell commands are written down, so that a test sees which ran; what would disturb the host is
// kept from it.
#include "board/preload/next.h"
#include "board/preload/raw.h"
#include "board/preload/run.h"
#include "board/preload/text.h"
#include "board/protocol/wire.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdlib>

using namespace board::preload;

namespace {

// One line, whole even when several processes write.
void note(const char* file, const char* line) {
    char path[maxRunFolder + 16];
    Text text(path, sizeof path);
    text.add(runFolder()).add("/").add(file);
    const long fd = text.whole() ? raw(SYS_openat, AT_FDCWD, path,
                                       O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666)
                                 : -1;
    if (fd < 0)
        return;
    char end = '\n';
    const iovec pieces[] = {{const_cast<char*>(line), length(line)}, {&end, 1}};
    raw(SYS_writev, fd, pieces, 2);
    raw(SYS_close, fd);
}

}  // namespace

WRAPPER(int, system, (const char* command)) {
    NEXT(system);
    if (command != nullptr && boardPage() != nullptr)
        note(board::wire::commandsName, command);
    return next(command);
}

// Flushing the host's disks for a file of the run folder serves nobody.
WRAPPER(void, sync, ()) {
    if (boardPage() != nullptr)
        return note(board::wire::keptName, "sync");
    NEXT(sync);
    next();
}
