#include "board/console/pagefiles.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace board::console {

namespace fs = std::filesystem;

namespace {

const std::map<std::string, std::string> types = {
    {".html", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".json", "application/json"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
    {".ico", "image/x-icon"},
    {".webmanifest", "application/manifest+json"},
};

}  // namespace

PageFiles::PageFiles(const std::string& folder) {
    std::error_code error;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder, error)) {
        const auto type = types.find(entry.path().extension().string());
        if (!entry.is_regular_file() || type == types.end())
            continue;
        std::ifstream file(entry.path(), std::ios::binary);
        PageFile page{type->second, {std::istreambuf_iterator<char>(file), {}}};
        if (!file.bad())
            files_["/" + entry.path().lexically_relative(folder).generic_string()] = page;
    }
    const auto index = files_.find("/index.html");
    if (index == files_.end())
        throw std::runtime_error("no index.html in " + folder + ", which --page names");
    files_["/"] = index->second;
}

const PageFile* PageFiles::find(const std::string& path) const {
    const auto found = files_.find(path);
    return found == files_.end() ? nullptr : &found->second;
}

}  // namespace board::console
