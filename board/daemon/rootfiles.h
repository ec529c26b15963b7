// What a fresh board has under the application's fixed paths.
#pragma once

#include "board/daemon/scenario.h"

#include <string>

namespace board {

// Fills root/ of a run folder that has none yet: pictures of the system image, temperatures, the
// scenario's files. A root that is there stays as the last run left it. Throws std::runtime_error.
void layRootFiles(const std::string& runFolder, const Scenario& scenario);

}  // namespace board
