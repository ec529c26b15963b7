// Which version of this software runs and which ran before. A leaf, so that the display can name
// them.
#pragma once

#include <string>

class VersionText {
  public:
    // Empty until the bookkeeping task was made, which is before any other thread; fixed from then
    // on.
    static inline std::string version;
    static inline std::string lastVersion;
};
