// The world of the supervisor inside the test process: nodes, display, pipeline, passing time.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

struct FakeWorld {
    std::map<std::string, ino_t> nodes;  // path -> inode
    bool displayPresent = true;
    bool pipelineStarts = true;
    int captureError = 0;

    std::vector<long> sleeps_ms;         // every sleep of the code under test
    std::vector<std::string> pipelines;  // node of every pipeline that was built
    int living = 0;                      // pipelines that exist now
    unsigned displayProbes = 0;
    bool bookkeepingCameFirst = false;  // before the first sleep, so before the supervisor
};

extern FakeWorld world;
