#include "board/daemon/rig.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace board {

namespace fs = std::filesystem;

namespace {

const char* nameOf(bool microphone) {
    return microphone ? "microphone" : "output";
}

}  // namespace

Rig::Rig(CoreBoard& board, const Scenario& scenario) : board_(board), scenario_(scenario) {
    display_ = std::make_unique<Display>(board, scenario.display);
    display_->addCard();
    display_->setStampLookup([this](const Stamp& stamp) {
        return camera_ ? camera_->delivered(stamp) : std::optional<Stamp>(stamp);
    });
    if (scenario.hasDisplay && scenario.displayPlugged)
        plugDisplay("");
    if (scenario.hasOutput)
        addSound(false, scenario.output);
    if (scenario.hasOutput && scenario.outputPlugged)
        plugSound(false, "");
    if (scenario.hasMicrophone)
        addSound(true, scenario.microphone);
    if (scenario.hasMicrophone && scenario.microphonePlugged)
        plugSound(true, "");
    inputs_ = std::make_unique<Inputs>(board, scenario.inputs);
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
        watch();
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

void Rig::addSound(bool microphone, const SoundDescription& description) {
    std::unique_ptr<SoundCard>& card = microphone ? microphone_ : output_;
    card = std::make_unique<SoundCard>(
        board_, description, microphone ? scenario_.microphoneCard : 0,
        microphone ? scenario_.microphoneClock_ppm : scenario_.outputClock_ppm);
    watch();
    if (microphone && !scenario_.hears.empty())
        card->hear(scenario_.hears, [this](const std::string& error) {
            if (!error.empty())
                board_.log("microphone: " + error);
        });
}

std::string Rig::plugSound(bool microphone, const std::string& description) {
    const std::unique_ptr<SoundCard>& card = microphone ? microphone_ : output_;
    const std::string name = nameOf(microphone);
    if (card && card->plugged())
        throw std::runtime_error("the " + name + " is plugged in already");
    if (!description.empty()) {
        const SoundDescription found = loadSound(findSound(description));
        if (card)
            card->replaceDescription(found);
        else
            addSound(microphone, found);
    }
    if (!card)
        throw std::runtime_error("the scenario has no " + name + "; name a description");
    card->plug();
    listCards();
    board_.log(name + " plugged in as card " + std::to_string(card->number()));
    return "hw:" + std::to_string(card->number());
}

void Rig::unplugSound(bool microphone) {
    const std::unique_ptr<SoundCard>& card = microphone ? microphone_ : output_;
    if (!card || !card->plugged())
        throw std::runtime_error(std::string("the ") + nameOf(microphone) + " is not plugged in");
    card->unplug();
    listCards();
    board_.log(std::string(nameOf(microphone)) + " unplugged");
}

// The kernel's listing of the cards that are there.
void Rig::listCards() {
    const fs::path folder = fs::path(board_.root()) / "proc/asound";
    for (const std::string& card : listed_)
        fs::remove_all(folder / card);
    listed_.clear();
    std::ofstream list(folder / "cards");
    for (SoundCard* card : {output_.get(), microphone_.get()}) {
        if (card == nullptr || !card->plugged())
            continue;
        const SoundDescription& about = card->description();
        list << " " << card->number() << " [" << about.id
             << std::string(15 - std::min<std::size_t>(about.id.size(), 15), ' ')
             << "]: " << about.driver << " - " << about.card << "\n"
             << "                      " << about.longName << "\n";
        listed_.push_back("card" + std::to_string(card->number()));
        const fs::path own = folder / listed_.back();
        fs::create_directories(own);
        std::ofstream(own / "id") << about.id << "\n";
        if (!about.stream0.empty())
            std::ofstream(own / "stream0") << about.stream0;
    }
    if (!list)
        board_.log("cannot write " + folder.string());
}

void Rig::setWatcher(Watcher* watcher) {
    watcher_ = watcher;
    watch();
}

// Those that are there; each is told again when another one comes.
void Rig::watch() {
    display_->setWatcher(watcher_);
    if (camera_)
        camera_->setWatcher(watcher_);
    if (microphone_)
        microphone_->setWatcher(watcher_, wire::ViewCard::microphone);
    if (output_)
        output_->setWatcher(watcher_, wire::ViewCard::output);
}

std::string Rig::plugInput(const std::string& name, const std::string& description) {
    if (!description.empty()) {
        InputDescription input = loadInput(findInput(description));
        input.name = name;
        if (inputs_->has(name))
            inputs_->change(name, input);
        else
            inputs_->add(input);
    }
    std::string path = inputs_->plug(name);
    board_.log(name + " plugged in at " + path);
    return path;
}

void Rig::unplugInput(const std::string& name) {
    inputs_->unplug(name);
    board_.log(name + " unplugged");
}

}  // namespace board
