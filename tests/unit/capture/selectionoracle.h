// The rules by which a camera's and a display's modes are listed and paired, written a second time
// and another way: every pair is judged, none is searched for in order. For comparison only.
#pragma once

#include "board/daemon/scenario.h"
#include "control/task/mediatypes.h"

#include <string>
#include <tuple>
#include <vector>

namespace oracle {

// A camera mode (`format` is its four-character code) or a display mode (`format` 0).
using Modes = std::vector<decInfo>;

struct Choice {
    std::string kind;  // "best by pass", "by pass", "scale"
    decInfo camera;
    decInfo display;

    friend bool operator==(const Choice& a, const Choice& b) { return a.key() == b.key(); }

  private:
    std::tuple<std::string, unsigned, unsigned, unsigned, unsigned, unsigned, unsigned, unsigned>
    key() const {
        return {kind,       camera.format, camera.width,   camera.height,
                camera.fps, display.width, display.height, display.fps};
    }
};

// The modes that are offered for a choice, in the order MJPG, YUYV, H264.
Modes offeredBy(const board::CameraDescription& camera);
// The modes that a display counts with.
Modes listedBy(const std::vector<board::DisplayMode>& connectorModes);
// Every answer that is right: more than one where equal bandwidths leave the order open, none where
// nothing fits. Neither list may be empty.
std::vector<Choice> rightChoices(const Modes& camera, const Modes& display);

std::string describe(const Choice& choice);

}  // namespace oracle
