// Descriptions of devices out of JSON, wherever they stand: in a file or inside a scenario.
#pragma once

#include "board/daemon/jsonreader.h"
#include "board/daemon/scenario.h"

namespace board {

PtzDescription readPtz(const JsonPlace& place);
std::vector<ExtensionUnitDescription> readUnits(const JsonPlace& place);
CameraDescription readCamera(const JsonPlace& place);
DisplayDescription readDisplay(const JsonPlace& place);
SoundDescription readSound(const JsonPlace& place);
InputDescription readInput(const JsonPlace& place);

}  // namespace board
