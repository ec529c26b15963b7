#include "board/preload/paths.h"

#include "board/preload/run.h"
#include "board/preload/text.h"
#include "board/protocol/mappedpaths.h"
#include "board/protocol/wire.h"

#include <cerrno>

namespace board::preload {

namespace {

// Folders that hold device nodes only.
constexpr const char* deviceFolders[] = {"/dev/dri", "/dev/snd", "/dev/input"};

// What begins like this is a device of the board or nothing.
constexpr const char* devicePrefixes[] = {
    "/dev/video", "/dev/media", "/dev/v4l-subdev", "/dev/v4l/",
    "/dev/dri/",  "/dev/snd/",  "/dev/input/",
};

bool isOrIsBelow(const char* path, const char* top) {
    if (!startsWith(path, top))
        return false;
    const char next = path[length(top)];
    return next == '\0' || next == '/';
}

bool needsCleaning(const char* path) {
    for (; *path != '\0'; ++path)
        if (path[0] == '/' && (path[1] == '/' || path[1] == '.' || path[1] == '\0'))
            return true;
    return false;
}

// Takes "//", "/./", "/../" and a last "/" out of an absolute path. False when it is too long.
bool clean(const char* path, char* out, std::size_t size) {
    std::size_t used = 0;
    while (*path != '\0') {
        while (*path == '/')
            ++path;
        std::size_t count = 0;
        while (path[count] != '\0' && path[count] != '/')
            ++count;
        const bool up = count == 2 && path[0] == '.' && path[1] == '.';
        if (up) {
            while (used > 0 && out[--used] != '/') {
            }
        } else if (count > 0 && !(count == 1 && path[0] == '.')) {
            if (used + count + 2 > size)
                return false;
            out[used++] = '/';
            for (std::size_t i = 0; i < count; ++i)
                out[used++] = path[i];
        }
        path += count;
    }
    out[used] = '\0';
    return used > 0;
}

const wire::NodeEntry* presentNode(const wire::SharedPage& page, const char* path) {
    const std::uint32_t count = page.nodeCount.load(std::memory_order_acquire);
    for (std::uint32_t i = 0; i < count && i < wire::maxNodes; ++i) {
        const wire::NodeEntry& node = page.nodes[i];
        if (node.present.load(std::memory_order_acquire) != 0 && equal(node.path, path))
            return &node;
    }
    return nullptr;
}

}  // namespace

Located::Located(const char* path) : path_(path) {
    if (path == nullptr || path[0] != '/')
        return;
    wire::SharedPage* page = boardPage();
    if (page == nullptr)
        return;
    char cleaned[PATH_MAX];
    if (!needsCleaning(path))
        find(*page, path);
    else if (clean(path, cleaned, sizeof cleaned))
        find(*page, cleaned);
}

void Located::find(wire::SharedPage& page, const char* path) {
    for (const char* top : wire::mappedPaths)
        if (isOrIsBelow(path, top))
            return standIn(path, Place::mapped);
    if (!startsWith(path, "/dev/"))
        return;
    for (const char* folder : deviceFolders)
        if (equal(path, folder))
            return standIn(path, Place::directory);
    node_ = presentNode(page, path);
    if (node_ != nullptr) {
        place_ = Place::node;
        return;
    }
    for (const char* prefix : devicePrefixes)
        if (startsWith(path, prefix))
            place_ = Place::absent;
}

void Located::standIn(const char* path, Place place) {
    Text text(buffer_, sizeof buffer_);
    text.add(runFolder()).add("/").add(wire::rootName).add(path);
    place_ = text.whole() ? place : Place::absent;
    path_ = buffer_;
}

const char* Located::usable() const {
    switch (place_) {
        case Place::host:
        case Place::mapped:
            return path_;
        case Place::directory:
        case Place::node:
            errno = EACCES;
            return nullptr;
        case Place::absent:
            break;
    }
    errno = ENOENT;
    return nullptr;
}

}  // namespace board::preload
