// How much sound is between the microphone and the output.
#pragma once

#include <rapidjson/document.h>

namespace board::console {

struct SoundOnTheWay {
    double onTheWay_ms = 0;  // read from the microphone by the application, not written yet
    double queued_ms = 0;    // written to the output, not played yet
};

// From the answer to "figures"; zeros while one of the two does not run.
SoundOnTheWay soundOnTheWay(const rapidjson::Document& figures);

}  // namespace board::console
