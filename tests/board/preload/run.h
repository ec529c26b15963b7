// Starts a program under the client library and waits for its end.
#pragma once

#include <string>
#include <vector>

struct Result {
    int code = -1;  // exit code; 128 + signal; -1: did not end in time and was killed
    std::string out;
    std::string err;
};

// `environment`: "NAME=value" entries on top of the test's own. An empty `folder` means no board.
Result runClient(const std::string& folder, const std::vector<std::string>& command,
                 const std::vector<std::string>& environment = {});
