// The devices of a scenario.
#pragma once

#include "board/daemon/camera.h"
#include "board/daemon/coreboard.h"
#include "board/daemon/display.h"
#include "board/daemon/remote/inputs.h"
#include "board/daemon/scenario.h"
#include "board/daemon/soundcard.h"

#include <memory>
#include <string>
#include <vector>

namespace board {

class Rig {
  public:
    // Puts in place what the scenario says is plugged. Throws std::exception.
    Rig(CoreBoard& board, const Scenario& scenario);

    CoreBoard& board() { return board_; }
    // Null when the scenario has no camera and none was plugged yet.
    Camera* camera() { return camera_.get(); }
    Display& display() { return *display_; }  // the card is always there
    // The camera's card and the board's own; null when the scenario has none and none was plugged.
    SoundCard* microphone() { return microphone_.get(); }
    SoundCard* output() { return output_.get(); }
    Inputs& inputs() { return *inputs_; }
    const Scenario& scenario() const { return scenario_; }

    // `description` is a name or a path; empty: the scenario's, or the one plugged last. Throws
    // std::runtime_error with one line when it is plugged already or there is none.
    std::string plugCamera(const std::string& description);  // the node's path
    void unplugCamera();
    void plugDisplay(const std::string& description);
    void unplugDisplay();
    void changeDisplay(const std::string& description);
    std::string plugSound(bool microphone, const std::string& description);  // the card's "hw:N"
    void unplugSound(bool microphone);
    // A description with an unknown name: a further input device. The node's path.
    std::string plugInput(const std::string& name, const std::string& description);
    void unplugInput(const std::string& name);

    // Told of what screen, camera and sound cards do, also of those that come later; null: nobody.
    // Must outlive the rig or be taken back.
    void setWatcher(Watcher* watcher);

  private:
    void addSound(bool microphone, const SoundDescription& description);
    void listCards();
    void watch();

    CoreBoard& board_;
    Scenario scenario_;
    std::unique_ptr<Camera> camera_;
    std::unique_ptr<Display> display_;
    std::unique_ptr<SoundCard> microphone_, output_;
    std::vector<std::string> listed_;  // cards' folders in /proc/asound
    std::unique_ptr<Inputs> inputs_;
    Watcher* watcher_ = nullptr;
};

}  // namespace board
