#include "board/daemon/rootfiles.h"

#include "board/protocol/wire.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace board {

namespace fs = std::filesystem;

namespace {

constexpr const char* pictures[] = {"startUpVersion_brivant.bin", "readyUpgradeDone_brivant.bin"};

// In thousandths of a degree, as the kernel gives them.
const std::map<std::string, std::string> temperatures = {
    {"/sys/class/thermal/thermal_zone0/temp", "45000\n"},
    {"/sys/class/thermal/thermal_zone1/temp", "43500\n"},
};

void writeFiles(const fs::path& root, const std::map<std::string, std::string>& files) {
    for (const auto& [path, content] : files) {
        const fs::path target = root.string() + path;
        fs::create_directories(target.parent_path());
        std::ofstream file(target, std::ios::binary);
        file << content;
        if (!file.flush())
            throw std::runtime_error(target.string() + ": cannot be written");
    }
}

}  // namespace

void layRootFiles(const std::string& runFolder, const Scenario& scenario) {
    const fs::path root = fs::path(runFolder) / wire::rootName;
    if (fs::exists(root))
        return;
    // Whole or not at all: a half-filled root would be taken for one of an earlier run.
    const fs::path part = root.string() + ".part";
    fs::remove_all(part);
    fs::create_directories(part / "usr/bin");
    for (const char* name : pictures)
        fs::copy_file(fs::path(BOARD_PICTURE_FOLDER) / name, part / "usr/bin" / name);
    writeFiles(part, temperatures);
    writeFiles(part, scenario.files);
    fs::rename(part, root);
}

}  // namespace board
