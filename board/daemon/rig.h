// The devices of a scenario.
#pragma once

#include "board/daemon/camera.h"
#include "board/daemon/coreboard.h"
#include "board/daemon/display.h"
#include "board/daemon/scenario.h"

#include <memory>
#include <string>

namespace board {

class Rig {
  public:
    // Puts in place what the scenario says is plugged. Throws std::exception.
    Rig(CoreBoard& board, const Scenario& scenario);

    CoreBoard& board() { return board_; }
    // Null when the scenario has no camera and none was plugged yet.
    Camera* camera() { return camera_.get(); }
    Display& display() { return *display_; }  // the card is always there
    const Scenario& scenario() const { return scenario_; }

    // `description` is a name or a path; empty: the scenario's, or the one plugged last. Throws
    // std::runtime_error with one line when it is plugged already or there is none.
    std::string plugCamera(const std::string& description);  // the node's path
    void unplugCamera();
    void plugDisplay(const std::string& description);
    void unplugDisplay();
    void changeDisplay(const std::string& description);

  private:
    CoreBoard& board_;
    Scenario scenario_;
    std::unique_ptr<Camera> camera_;
    std::unique_ptr<Display> display_;
};

}  // namespace board
