#include "board/daemon/coreboard.h"

#include "board/protocol/wire.h"

#include <time.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace board {

namespace fs = std::filesystem;

namespace {

constexpr const char* sysDevices = "sys/dev/char";

void prepareRoot(const fs::path& root) {
    // Nodes of a run that ended badly are not there any more.
    fs::remove_all(root / sysDevices);
    for (const char* folder :
         {"userdata", "etc", "usr/bin", "proc/asound", "sys/class/thermal", sysDevices})
        fs::create_directories(root / folder);
}

}  // namespace

CoreBoard::CoreBoard(EventLoop& loop, const std::string& folder, std::uint32_t speed)
    : loop_(loop),
      folder_(folder),
      page_((fs::path(folder) / wire::pageName).string(), speed),
      clock_(speed, page_.page().monotonicOrigin_ns) {
    prepareRoot(root());
}

CoreBoard::~CoreBoard() {
    while (!nodes_.empty())
        removeNode(std::string(nodes_.begin()->first));
}

void CoreBoard::addNode(const std::string& path, unsigned major, unsigned minor, Device& device) {
    const fs::path folder =
        fs::path(root()) / sysDevices / (std::to_string(major) + ":" + std::to_string(minor));
    std::error_code error;
    fs::create_directories(folder, error);
    std::ofstream uevent(folder / "uevent");
    const std::string name = path.compare(0, 5, "/dev/") == 0 ? path.substr(5) : path;
    uevent << "MAJOR=" << major << "\nMINOR=" << minor << "\nDEVNAME=" << name << "\n";
    uevent.close();
    if (!uevent)
        log("cannot write " + (folder / "uevent").string());
    // The node comes last: who sees it finds its file.
    nodes_[path] = {&device, folder.string()};
    page_.addNode(path, major, minor);
    log("node " + path + " is there");
}

void CoreBoard::removeNode(const std::string& path) {
    const auto found = nodes_.find(path);
    if (found == nodes_.end())
        return;
    page_.removeNode(path);
    std::error_code error;
    fs::remove_all(found->second.sysFolder, error);
    log("node " + path + " is gone");
    nodes_.erase(found);
}

void CoreBoard::setHandleState(std::uint32_t slot, std::uint32_t bits) {
    page_.setHandleState(slot, bits);
}

std::int64_t CoreBoard::realtime_ns() const {
    const wire::SharedPage& page = page_.page();
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::int64_t machine_ns = std::int64_t(now.tv_sec) * 1000000000 + now.tv_nsec;
    return page.realtimeOrigin_ns +
           (machine_ns - page.realtimeOrigin_ns) * std::int64_t(page.speed) +
           page.realtimeStep_ns.load();
}

void CoreBoard::log(const std::string& line) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    localtime_r(&now.tv_sec, &parts);
    char time[16];
    std::strftime(time, sizeof time, "%H:%M:%S", &parts);
    std::fprintf(stderr, "%s.%03ld %s\n", time, now.tv_nsec / 1000000, line.c_str());
}

Device* CoreBoard::deviceAt(const std::string& path) const {
    const auto found = nodes_.find(path);
    return found == nodes_.end() ? nullptr : found->second.device;
}

std::string CoreBoard::root() const {
    return (fs::path(folder_) / wire::rootName).string();
}

}  // namespace board
