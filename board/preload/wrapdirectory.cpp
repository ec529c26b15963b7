// Folders: what stands in the run folder is listed in their place.
#include "board/preload/next.h"
#include "board/preload/paths.h"

#include <dirent.h>
#include <unistd.h>

#include <cerrno>

using namespace board::preload;

namespace {

// The folder to list; null with errno set when the path is none.
const char* folderOf(const Located& where) {
    if (where.place() == Place::directory)
        return where.path();
    const char* path = where.usable();
    if (where.place() == Place::node)
        errno = ENOTDIR;
    return path;
}

}  // namespace

WRAPPER(int, chdir, (const char* path)) {
    const Located where(path);
    const char* folder = folderOf(where);
    NEXT(chdir);
    return folder == nullptr ? -1 : next(folder);
}

WRAPPER(DIR*, opendir, (const char* path)) {
    const Located where(path);
    const char* folder = folderOf(where);
    NEXT(opendir);
    return folder == nullptr ? nullptr : next(folder);
}

WRAPPER(int, scandir,
        (const char* path, dirent*** list, int (*select)(const dirent*),
         int (*compare)(const dirent**, const dirent**))) {
    const Located where(path);
    const char* folder = folderOf(where);
    NEXT(scandir);
    return folder == nullptr ? -1 : next(folder, list, select, compare);
}

WRAPPER(int, scandir64,
        (const char* path, dirent64*** list, int (*select)(const dirent64*),
         int (*compare)(const dirent64**, const dirent64**))) {
    const Located where(path);
    const char* folder = folderOf(where);
    NEXT(scandir64);
    return folder == nullptr ? -1 : next(folder, list, select, compare);
}
