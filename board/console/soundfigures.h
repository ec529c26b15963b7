// How much sound is between the microphone and the output.
#pragma once

#include <rapidjson/document.h>

#include <optional>

namespace board::console {

struct SoundOnTheWay {
    // Read from the microphone by the application, not written to the output yet.
    std::optional<double> onTheWay_ms;
    std::optional<double> queued_ms;  // written to the output, not played yet
};

// From the answer to "figures"; nothing of what does not run.
SoundOnTheWay soundOnTheWay(const rapidjson::Document& figures);

}  // namespace board::console
