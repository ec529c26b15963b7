// What the program is told about files: the board's nodes look like character devices, and a
// descriptor looks like its node.
#include "board/preload/handles.h"
#include "board/preload/next.h"
#include "board/preload/paths.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

using namespace board::preload;

namespace {

constexpr unsigned deviceFileSystem = 5;  // st_dev of all nodes
constexpr std::uint64_t folderInode = 2;

struct Identity {
    std::uint32_t mode;
    std::uint64_t rdev;
    std::uint64_t inode;
};

constexpr Identity folderIdentity = {S_IFDIR | 0755, 0, folderInode};

template <typename Stat>  // struct stat or struct stat64
void fill(Stat* out, const Identity& identity) {
    *out = {};
    out->st_dev = deviceFileSystem;
    out->st_ino = identity.inode;
    out->st_nlink = 1;
    out->st_mode = identity.mode;
    out->st_rdev = identity.rdev;
    out->st_blksize = 4096;
}

void fill(struct statx* out, const Identity& identity) {
    *out = {};
    out->stx_mask = STATX_BASIC_STATS;
    out->stx_blksize = 4096;
    out->stx_nlink = 1;
    out->stx_mode = std::uint16_t(identity.mode);
    out->stx_ino = identity.inode;
    out->stx_rdev_major = major(identity.rdev);
    out->stx_rdev_minor = minor(identity.rdev);
    out->stx_dev_minor = deviceFileSystem;
}

// `pass` asks libc about a path.
template <typename Out, typename Pass>
int statPath(const char* path, Out* out, Pass pass) {
    const Located where(path);
    switch (where.place()) {
        case Place::node:
            fill(out, Identity{where.node().mode, where.node().rdev, where.node().inode});
            return 0;
        case Place::directory:
            fill(out, folderIdentity);
            return 0;
        case Place::absent:
            return toLibc<int>(-ENOENT);
        default:
            return pass(where.path());
    }
}

template <typename Out, typename Pass>
int statDescriptor(int fd, Out* out, Pass pass) {
    const HandleRef handle = isBoards(fd) ? handleOf(fd) : HandleRef();
    if (!handle)
        return pass();
    fill(out, Identity{handle->mode, handle->rdev, handle->inode});
    return 0;
}

bool meansDescriptor(const char* path, int flags) {
    return (flags & AT_EMPTY_PATH) != 0 && (path == nullptr || path[0] == '\0');
}

template <typename Out, typename Pass>
int statBelow(int folder, const char* path, Out* out, int flags, Pass pass) {
    if (meansDescriptor(path, flags))
        return statDescriptor(folder, out, [&] { return pass(path); });
    return statPath(path, out, pass);
}

int accessOf(const Located& where, int wanted) {
    if (where.place() == Place::absent)
        return toLibc<int>(-ENOENT);
    const bool runs = where.place() == Place::directory;
    return (wanted & X_OK) != 0 && !runs ? toLibc<int>(-EACCES) : 0;
}

template <typename Pass>
int accessWith(const char* path, int wanted, Pass pass) {
    const Located where(path);
    if (where.place() == Place::host || where.place() == Place::mapped)
        return pass(where.path());
    return accessOf(where, wanted);
}

// A link to read: nodes and their folders are none.
template <typename Pass>
ssize_t linkWith(const char* path, Pass pass) {
    const Located where(path);
    if (where.place() == Place::host || where.place() == Place::mapped)
        return pass(where.path());
    return toLibc<ssize_t>(where.place() == Place::absent ? -ENOENT : -EINVAL);
}

}  // namespace

// The stat calls come in twos that differ in name and type only, and in an older form with a
// version in front.
#define STAT_BY_PATH(name, pointer)                                                    \
    WRAPPER(int, name, (const char* path, pointer out)) {                              \
        NEXT(name);                                                                    \
        return statPath(path, out, [&](const char* real) { return next(real, out); }); \
    }
#define STAT_BY_DESCRIPTOR(name, pointer)                              \
    WRAPPER(int, name, (int fd, pointer out)) {                        \
        NEXT(name);                                                    \
        return statDescriptor(fd, out, [&] { return next(fd, out); }); \
    }
#define STAT_BELOW(name, pointer)                                                           \
    WRAPPER(int, name, (int folder, const char* path, pointer out, int flags)) {            \
        NEXT(name);                                                                         \
        return statBelow(folder, path, out, flags,                                          \
                         [&](const char* real) { return next(folder, real, out, flags); }); \
    }
#define OLD_STAT_BY_PATH(name, pointer)                                                         \
    WRAPPER(int, name, (int version, const char* path, pointer out)) {                          \
        NEXT_AS(name, int(int, const char*, pointer));                                          \
        return statPath(path, out, [&](const char* real) { return next(version, real, out); }); \
    }
#define OLD_STAT_BY_DESCRIPTOR(name, pointer)                                   \
    WRAPPER(int, name, (int version, int fd, pointer out)) {                    \
        NEXT_AS(name, int(int, int, pointer));                                  \
        return statDescriptor(fd, out, [&] { return next(version, fd, out); }); \
    }
#define OLD_STAT_BELOW(name, pointer)                                                         \
    WRAPPER(int, name, (int version, int folder, const char* path, pointer out, int flags)) { \
        NEXT_AS(name, int(int, int, const char*, pointer, int));                              \
        return statBelow(folder, path, out, flags, [&](const char* real) {                    \
            return next(version, folder, real, out, flags);                                   \
        });                                                                                   \
    }

STAT_BY_PATH(stat, struct stat*)
STAT_BY_PATH(stat64, struct stat64*)
STAT_BY_PATH(lstat, struct stat*)
STAT_BY_PATH(lstat64, struct stat64*)
STAT_BY_DESCRIPTOR(fstat, struct stat*)
STAT_BY_DESCRIPTOR(fstat64, struct stat64*)
STAT_BELOW(fstatat, struct stat*)
STAT_BELOW(fstatat64, struct stat64*)
OLD_STAT_BY_PATH(__xstat, struct stat*)
OLD_STAT_BY_PATH(__xstat64, struct stat64*)
OLD_STAT_BY_PATH(__lxstat, struct stat*)
OLD_STAT_BY_PATH(__lxstat64, struct stat64*)
OLD_STAT_BY_DESCRIPTOR(__fxstat, struct stat*)
OLD_STAT_BY_DESCRIPTOR(__fxstat64, struct stat64*)
OLD_STAT_BELOW(__fxstatat, struct stat*)
OLD_STAT_BELOW(__fxstatat64, struct stat64*)

WRAPPER(int, statx, (int folder, const char* path, int flags, unsigned mask, struct statx* out)) {
    NEXT(statx);
    return statBelow(folder, path, out, flags,
                     [&](const char* real) { return next(folder, real, flags, mask, out); });
}

WRAPPER(int, access, (const char* path, int wanted)) {
    NEXT(access);
    return accessWith(path, wanted, [&](const char* real) { return next(real, wanted); });
}

WRAPPER(int, euidaccess, (const char* path, int wanted)) {
    NEXT(euidaccess);
    return accessWith(path, wanted, [&](const char* real) { return next(real, wanted); });
}

WRAPPER(int, eaccess, (const char* path, int wanted)) {
    NEXT(eaccess);
    return accessWith(path, wanted, [&](const char* real) { return next(real, wanted); });
}

WRAPPER(int, faccessat, (int folder, const char* path, int wanted, int flags)) {
    NEXT(faccessat);
    return accessWith(path, wanted,
                      [&](const char* real) { return next(folder, real, wanted, flags); });
}

WRAPPER(ssize_t, readlink, (const char* path, char* out, std::size_t size)) {
    NEXT(readlink);
    return linkWith(path, [&](const char* real) { return next(real, out, size); });
}

WRAPPER(ssize_t, readlinkat, (int folder, const char* path, char* out, std::size_t size)) {
    NEXT(readlinkat);
    return linkWith(path, [&](const char* real) { return next(folder, real, out, size); });
}

WRAPPER(ssize_t, __readlink_chk,
        (const char* path, char* out, std::size_t size, std::size_t room)) {
    NEXT_AS(__readlink_chk, ssize_t(const char*, char*, std::size_t, std::size_t));
    return linkWith(path, [&](const char* real) { return next(real, out, size, room); });
}

WRAPPER(ssize_t, __readlinkat_chk,
        (int folder, const char* path, char* out, std::size_t size, std::size_t room)) {
    NEXT_AS(__readlinkat_chk, ssize_t(int, const char*, char*, std::size_t, std::size_t));
    return linkWith(path, [&](const char* real) { return next(folder, real, out, size, room); });
}
