// The page's files, read once.
#pragma once

#include <map>
#include <string>

namespace board::console {

struct PageFile {
    std::string type;  // "text/html; charset=utf-8"
    std::string bytes;
};

// A request is matched with what was found at the start; none of it ever reaches the file system.
class PageFiles {
  public:
    // Everything below `folder` whose ending is known. Throws std::runtime_error when there is no
    // index.html.
    explicit PageFiles(const std::string& folder);

    // Null when there is no such file; "/" is index.html.
    const PageFile* find(const std::string& path) const;

  private:
    std::map<std::string, PageFile> files_;
};

}  // namespace board::console
