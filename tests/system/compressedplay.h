// A compressed camera mode played to its pictures on the screen.
#pragma once

#include "tests/support/application.h"
#include "tests/support/cameramode.h"

namespace compressed {

std::uint32_t fourccOf(const support::CameraMode& mode);

// Compares `count` pictures on the screen with what FFmpeg decodes from the payloads that the
// camera has sent since `payloads` was started, before the stream. Unscaled: at least `least_dB`.
void expectLikeTheReference(support::Board& board, const support::CameraMode& mode,
                            const std::string& payloads, unsigned count, double least_dB);

// A path for the payloads of this board, and the order that starts them.
std::string startPayloads(support::Board& board, const support::CameraMode& mode);

}  // namespace compressed
