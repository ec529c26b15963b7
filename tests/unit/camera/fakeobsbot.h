// A camera-control task that does nothing, for tests of those who make one.
#pragma once

#include <string>
#include <vector>

struct ObsBotLife {
    std::vector<std::string> made;  // the node of each
    int living = 0;
};

extern ObsBotLife obsBotLife;
