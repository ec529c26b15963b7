// Microphone and output of the capture session's tests: they only say what happens to them.
#include "control/audio/captureaudio.h"
#include "control/audio/playbackaudio.h"
#include "tests/unit/capture/fakestages.h"

namespace {

std::string describe(const audioInfo& info) {
    return std::to_string(info.channels) + "x" + std::to_string(info.format) + "@" +
           std::to_string(info.rate);
}

const Receive_handler* linked = nullptr;

}  // namespace

Captureaudio::Captureaudio(const audioInfo& audio) : audio(audio) {
    stages::note("microphone " + audio.device + " " + describe(audio));
}

Captureaudio::~Captureaudio() {
    Captureaudio::close();
    stages::note("microphone deleted");
}

int Captureaudio::close() {
    running = 0;
    wait();
    return 0;
}

int Captureaudio::svc() {
    stages::note(std::string("microphone runs, linked ") + (linked != nullptr ? "yes" : "no"));
    return 0;
}

void Captureaudio::linkPlaybackReceiveHandler(Receive_handler* handler) {
    linked = handler;
}

PlaybackAudio::PlaybackAudio(const audioInfo& source, const audioInfo& device)
    : source(source), device(device) {
    stages::note("output " + describe(source) + " as " + describe(device));
}

PlaybackAudio::~PlaybackAudio() {
    linked = nullptr;
    stages::note("output deleted");
}

int PlaybackAudio::close() {
    return 0;
}

int PlaybackAudio::svc() {
    return 0;
}

int PlaybackAudio::receive_handler(void* /*msg*/, unsigned int /*arg*/) {
    return 1;
}

bool PlaybackAudio::queueAllow_angler() {
    return true;
}
