// What a person can plug in by name.
#pragma once

#include "board/daemon/jsonfields.h"

namespace board {

// The descriptions in the data folder: {"cameras": [{"name", "card", "formats": ["MJPG"]}],
// "displays": [{"name", "modes": ["1920x1080@60"]}], "sound": [{"name", "card", "playback",
// "capture"}], "inputs": [{"name"}]}. One that cannot be read is left out. Reads every file: not
// for the loop's thread.
JsonFields readCatalogue();

}  // namespace board
