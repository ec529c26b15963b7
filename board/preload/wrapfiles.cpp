// Calls that change files by path. Only stand-ins and host files can be changed.
#include "board/preload/next.h"
#include "board/preload/paths.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

using namespace board::preload;

namespace {

// Two paths: `pass` gets both as they really are.
template <typename Pass>
int onPaths(const char* from, const char* to, Pass pass) {
    const Located source(from);
    const Located target(to);
    const char* realSource = source.usable();
    const char* realTarget = realSource == nullptr ? nullptr : target.usable();
    return realTarget == nullptr ? -1 : pass(realSource, realTarget);
}

// `pass` gets the real path of a call that has other arguments before it.
template <typename Pass>
int onBelow(const char* path, Pass pass) {
    return onPath(pass, path);
}

}  // namespace

WRAPPER(int, unlink, (const char* path)) {
    NEXT(unlink);
    return onPath(next, path);
}

WRAPPER(int, unlinkat, (int folder, const char* path, int flags)) {
    NEXT(unlinkat);
    return onBelow(path, [&](const char* real) { return next(folder, real, flags); });
}

WRAPPER(int, remove, (const char* path)) {
    NEXT(remove);
    return onPath(next, path);
}

WRAPPER(int, rename, (const char* from, const char* to)) {
    NEXT(rename);
    return onPaths(from, to, [&](const char* f, const char* t) { return next(f, t); });
}

WRAPPER(int, renameat, (int fromFolder, const char* from, int toFolder, const char* to)) {
    NEXT(renameat);
    return onPaths(from, to,
                   [&](const char* f, const char* t) { return next(fromFolder, f, toFolder, t); });
}

WRAPPER(int, renameat2,
        (int fromFolder, const char* from, int toFolder, const char* to, unsigned flags)) {
    NEXT(renameat2);
    return onPaths(from, to, [&](const char* f, const char* t) {
        return next(fromFolder, f, toFolder, t, flags);
    });
}

WRAPPER(int, link, (const char* from, const char* to)) {
    NEXT(link);
    return onPaths(from, to, [&](const char* f, const char* t) { return next(f, t); });
}

WRAPPER(int, linkat, (int fromFolder, const char* from, int toFolder, const char* to, int flags)) {
    NEXT(linkat);
    return onPaths(from, to, [&](const char* f, const char* t) {
        return next(fromFolder, f, toFolder, t, flags);
    });
}

WRAPPER(int, mkdir, (const char* path, mode_t mode)) {
    NEXT(mkdir);
    return onPath(next, path, mode);
}

WRAPPER(int, mkdirat, (int folder, const char* path, mode_t mode)) {
    NEXT(mkdirat);
    return onBelow(path, [&](const char* real) { return next(folder, real, mode); });
}

WRAPPER(int, rmdir, (const char* path)) {
    NEXT(rmdir);
    return onPath(next, path);
}

WRAPPER(int, chmod, (const char* path, mode_t mode)) {
    NEXT(chmod);
    return onPath(next, path, mode);
}

WRAPPER(int, fchmodat, (int folder, const char* path, mode_t mode, int flags)) {
    NEXT(fchmodat);
    return onBelow(path, [&](const char* real) { return next(folder, real, mode, flags); });
}

WRAPPER(int, utimensat, (int folder, const char* path, const timespec* times, int flags)) {
    NEXT(utimensat);
    if (path == nullptr)  // means the descriptor itself
        return next(folder, path, times, flags);
    return onBelow(path, [&](const char* real) { return next(folder, real, times, flags); });
}

WRAPPER(int, utimes, (const char* path, const timeval* times)) {
    NEXT(utimes);
    return onPath(next, path, times);
}

WRAPPER(int, truncate, (const char* path, off_t bytes)) {
    NEXT(truncate);
    return onPath(next, path, bytes);
}

WRAPPER(int, truncate64, (const char* path, off64_t bytes)) {
    NEXT(truncate64);
    return onPath(next, path, bytes);
}
