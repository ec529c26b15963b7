// Opening: nodes of the board, stand-ins of fixed paths, everything else.
#include "board/preload/connection.h"
#include "board/preload/next.h"
#include "board/preload/paths.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>

using namespace board::preload;

namespace {

// `pass` opens a path that libc shall open.
template <typename Pass>
int openWith(const char* path, int flags, Pass pass) {
    const Located where(path);
    switch (where.place()) {
        case Place::node:
            return toLibc<int>(openNode(where.node(), flags));
        case Place::absent:
            return toLibc<int>(-ENOENT);
        default:
            return pass(where.path());
    }
}

bool takesMode(int flags) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

template <typename Next>
int openPlain(Next& next, const char* path, int flags, mode_t mode) {
    return openWith(path, flags, [&](const char* real) { return next(real, flags, mode); });
}

template <typename Next>
int openBelow(Next& next, int folder, const char* path, int flags, mode_t mode) {
    return openWith(path, flags, [&](const char* real) { return next(folder, real, flags, mode); });
}

int flagsOf(const char* mode) {
    int flags = mode[0] == 'r' ? O_RDONLY : O_WRONLY;
    for (const char* letter = mode; *letter != '\0' && *letter != ','; ++letter) {
        if (*letter == '+')
            flags = (flags & ~O_ACCMODE) | O_RDWR;
        if (*letter == 'e')
            flags |= O_CLOEXEC;
    }
    return flags;
}

template <typename Pass>
FILE* streamWith(const char* path, const char* mode, Pass pass) {
    const Located where(path);
    if (where.place() == Place::absent) {
        errno = ENOENT;
        return nullptr;
    }
    if (where.place() != Place::node)
        return pass(where.path());
    const long fd = openNode(where.node(), flagsOf(mode));
    if (fd < 0) {
        errno = int(-fd);
        return nullptr;
    }
    return ::fdopen(int(fd), mode);
}

}  // namespace

// The mode stands in the list only when the flags say so.
#define MODE_FROM_LIST(flags)             \
    mode_t mode = 0;                      \
    if (takesMode(flags)) {               \
        va_list list;                     \
        va_start(list, flags);            \
        mode = mode_t(va_arg(list, int)); \
        va_end(list);                     \
    }

WRAPPER(int, open, (const char* path, int flags, ...)) {
    MODE_FROM_LIST(flags)
    NEXT(open);
    return openPlain(next, path, flags, mode);
}

WRAPPER(int, open64, (const char* path, int flags, ...)) {
    MODE_FROM_LIST(flags)
    NEXT(open64);
    return openPlain(next, path, flags, mode);
}

WRAPPER(int, openat, (int folder, const char* path, int flags, ...)) {
    MODE_FROM_LIST(flags)
    NEXT(openat);
    return openBelow(next, folder, path, flags, mode);
}

WRAPPER(int, openat64, (int folder, const char* path, int flags, ...)) {
    MODE_FROM_LIST(flags)
    NEXT(openat64);
    return openBelow(next, folder, path, flags, mode);
}

WRAPPER(int, __open_2, (const char* path, int flags)) {
    NEXT_AS(__open_2, int(const char*, int));
    return openWith(path, flags, [&](const char* real) { return next(real, flags); });
}

WRAPPER(int, __open64_2, (const char* path, int flags)) {
    NEXT_AS(__open64_2, int(const char*, int));
    return openWith(path, flags, [&](const char* real) { return next(real, flags); });
}

WRAPPER(int, __openat_2, (int folder, const char* path, int flags)) {
    NEXT_AS(__openat_2, int(int, const char*, int));
    return openWith(path, flags, [&](const char* real) { return next(folder, real, flags); });
}

WRAPPER(int, __openat64_2, (int folder, const char* path, int flags)) {
    NEXT_AS(__openat64_2, int(int, const char*, int));
    return openWith(path, flags, [&](const char* real) { return next(folder, real, flags); });
}

WRAPPER(int, creat, (const char* path, mode_t mode)) {
    NEXT(creat);
    return onPath(next, path, mode);
}

WRAPPER(int, creat64, (const char* path, mode_t mode)) {
    NEXT(creat64);
    return onPath(next, path, mode);
}

WRAPPER(FILE*, fopen, (const char* path, const char* mode)) {
    NEXT(fopen);
    return streamWith(path, mode, [&](const char* real) { return next(real, mode); });
}

WRAPPER(FILE*, fopen64, (const char* path, const char* mode)) {
    NEXT(fopen64);
    return streamWith(path, mode, [&](const char* real) { return next(real, mode); });
}

WRAPPER(FILE*, freopen, (const char* path, const char* mode, FILE* stream)) {
    const Located where(path);
    NEXT(freopen);
    const char* usable = path == nullptr ? nullptr : where.usable();
    return path != nullptr && usable == nullptr ? nullptr : next(usable, mode, stream);
}

WRAPPER(FILE*, freopen64, (const char* path, const char* mode, FILE* stream)) {
    const Located where(path);
    NEXT(freopen64);
    const char* usable = path == nullptr ? nullptr : where.usable();
    return path != nullptr && usable == nullptr ? nullptr : next(usable, mode, stream);
}
