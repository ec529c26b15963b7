// Pictures as JPEG, for the live views.
#pragma once

#include "board/console/i420picture.h"

#include <string>

namespace board::console {

// The picture must be padded. Empty when the encoder fails.
std::string encodeJpeg(const I420Picture& picture, int quality);

}  // namespace board::console
