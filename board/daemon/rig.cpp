#include "board/daemon/rig.h"

#include <stdexcept>

namespace board {

Rig::Rig(CoreBoard& board, const Scenario& scenario) : board_(board), scenario_(scenario) {
    display_ = std::make_unique<Display>(board, scenario.display);
    display_->addCard();
    if (scenario.hasDisplay && scenario.displayPlugged)
        plugDisplay("");
    if (!scenario.hasCamera)
        return;
    camera_ = std::make_unique<Camera>(board, scenario.camera);
    if (scenario.cameraPlugged)
        plugCamera("");
}

std::string Rig::plugCamera(const std::string& description) {
    if (camera_ && camera_->plugged())
        throw std::runtime_error("the camera is plugged in already, at " + camera_->nodePath());
    if (!description.empty()) {
        const CameraDescription camera = loadCamera(findCamera(description));
        if (camera_)
            camera_->replaceDescription(camera);
        else
            camera_ = std::make_unique<Camera>(board_, camera);
    }
    if (!camera_)
        throw std::runtime_error("the scenario has no camera; name a description");
    std::string path = camera_->plug(scenario_.cameraNumber);
    board_.log("camera plugged in at " + path);
    return path;
}

void Rig::unplugCamera() {
    if (!camera_ || !camera_->plugged())
        throw std::runtime_error("the camera is not plugged in");
    camera_->unplug();
    board_.log("camera unplugged");
}

void Rig::plugDisplay(const std::string& description) {
    if (display_->plugged())
        throw std::runtime_error("the display is plugged in already");
    if (!description.empty())
        changeDisplay(description);
    if (!scenario_.hasDisplay)
        throw std::runtime_error("the scenario has no display; name a description");
    display_->plug();
    board_.log("display plugged in: " + scenario_.display.name);
}

void Rig::unplugDisplay() {
    if (!display_->plugged())
        throw std::runtime_error("the display is not plugged in");
    display_->unplug();
    board_.log("display unplugged");
}

void Rig::changeDisplay(const std::string& description) {
    scenario_.display = loadDisplay(findDisplay(description));
    scenario_.hasDisplay = true;
    display_->replaceDescription(scenario_.display);
    board_.log("display is now " + scenario_.display.name);
}

}  // namespace board
