// Scenarios of the system tests.
#pragma once

#include <string>

#include "tests/support/environment.h"

namespace support {

// tests/system/scenarios/NAME.json
inline std::string benchScenario(const std::string& name) {
    return sourcePath("tests/system/scenarios/" + name + ".json");
}

}  // namespace support
