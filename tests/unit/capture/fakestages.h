// Stand-ins for the display task and the decoder, with a record of what happened to them.
#pragma once

#include "control/task/mediatypes.h"

#include <cstdint>
#include <string>
#include <vector>

// A frame as the decoder got it.
struct ReceivedFrame {
    std::vector<std::uint8_t> payload;
    std::uint32_t width = 0, height = 0, virWidth = 0, virHeight = 0, format = 0;
    double pts = 0.0;
    std::string thread;  // name of the thread that handed it over
};

// One for the process; all functions may be called from any thread.
namespace stages {

// Back to a connected display with these modes and a decoder that opens and accepts everything.
void reset(std::vector<decInfo> displayModes);
void setConnected(bool connected);
void setDecoderMissing(bool missing);
void setDecoderOpens(bool opens);
void setAccepting(bool accepting);

void note(const std::string& what);
std::vector<std::string> journal();  // what happened, in order
std::vector<ReceivedFrame> frames();
bool waitFrames(std::size_t count);

}  // namespace stages
