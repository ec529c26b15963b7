#include "tests/unit/capture/fakestages.h"

#include "control/decode/deccommon.h"
#include "control/display/showcontrol.h"
#include "control/task/msgvideo.h"
#include "tests/unit/capture/fakecamera.h"

#include <pthread.h>

#include <condition_variable>
#include <mutex>

namespace {

struct World {
    std::mutex lock;
    std::condition_variable changed;
    std::vector<decInfo> displayModes;
    bool connected = true, decoderMissing = false, decoderOpens = true, accepting = true;
    std::vector<std::string> journal;
    std::vector<ReceivedFrame> frames;
};

World& world() {
    static World instance;
    return instance;
}

std::string threadName() {
    char name[16] = "";
    pthread_getname_np(pthread_self(), name, sizeof name);
    return name;
}

class FakeDecoder final : public DecCommon {
  public:
    FakeDecoder() = default;
    ~FakeDecoder() override { stages::note("decoder deleted"); }

    int decoder_open() override {
        stages::note("decoder_open");
        const std::lock_guard<std::mutex> guard(world().lock);
        return world().decoderOpens ? 1 : 0;
    }
    int decoder_close() override { return 0; }
    int decoder_process(void*, void*) override { return 0; }
    int receive_handler(void* msg, unsigned int) override {
        const std::unique_ptr<msgVideo> frame(static_cast<msgVideo*>(msg));
        World& w = world();
        const std::lock_guard<std::mutex> guard(w.lock);
        w.frames.push_back({{frame->data[0], frame->data[0] + frame->length[0]},
                            frame->width,
                            frame->height,
                            frame->virWidth,
                            frame->virHeight,
                            frame->format,
                            frame->pts,
                            threadName()});
        w.changed.notify_all();
        return 1;
    }
    bool queueAllow_angler() override {
        const std::lock_guard<std::mutex> guard(world().lock);
        return world().accepting;
    }
};

}  // namespace

namespace stages {

void reset(std::vector<decInfo> displayModes) {
    World& w = world();
    const std::lock_guard<std::mutex> guard(w.lock);
    w.displayModes = std::move(displayModes);
    w.connected = w.decoderOpens = w.accepting = true;
    w.decoderMissing = false;
    w.journal.clear();
    w.frames.clear();
}

void setConnected(bool connected) {
    const std::lock_guard<std::mutex> guard(world().lock);
    world().connected = connected;
}

void setDecoderMissing(bool missing) {
    const std::lock_guard<std::mutex> guard(world().lock);
    world().decoderMissing = missing;
}

void setDecoderOpens(bool opens) {
    const std::lock_guard<std::mutex> guard(world().lock);
    world().decoderOpens = opens;
}

void setAccepting(bool accepting) {
    const std::lock_guard<std::mutex> guard(world().lock);
    world().accepting = accepting;
}

void note(const std::string& what) {
    FakeCamera* camera = FakeCamera::current();
    std::vector<std::string> calls;
    if (camera != nullptr) {
        calls = camera->calls();
    }
    const std::lock_guard<std::mutex> guard(world().lock);
    world().journal.push_back(what + " after " + (calls.empty() ? "nothing" : calls.back()));
}

std::vector<std::string> journal() {
    const std::lock_guard<std::mutex> guard(world().lock);
    return world().journal;
}

std::vector<ReceivedFrame> frames() {
    const std::lock_guard<std::mutex> guard(world().lock);
    return world().frames;
}

bool waitFrames(std::size_t count) {
    std::unique_lock<std::mutex> guard(world().lock);
    return world().changed.wait_for(guard, deadline,
                                    [&] { return world().frames.size() >= count; });
}

}  // namespace stages

// The parts of display and decoder framework that the code under test calls.

DisplayDrm::~DisplayDrm() = default;

void DisplayDrm::getDrmEdidInfo(std::vector<decInfo>& list) {
    const std::lock_guard<std::mutex> guard(world().lock);
    list.insert(list.end(), world().displayModes.begin(), world().displayModes.end());
}

ShowControl::ShowControl(decInfo mode) {
    stages::note("show " + std::to_string(mode.width) + "x" + std::to_string(mode.height) + "@" +
                 std::to_string(mode.fps));
}

ShowControl::~ShowControl() {
    close();
    stages::note("show deleted");
}

int ShowControl::svc() {
    stages::note("show runs");
    return 0;
}

int ShowControl::close() {
    running = 0;
    wait();
    return 0;
}

int ShowControl::isConnected() {
    const std::lock_guard<std::mutex> guard(world().lock);
    return world().connected ? 1 : 0;
}

DecCommon* DecCommon::find_decoder_dev(int fourcc, void* captureMode, int kind, std::string name) {
    const auto& mode = *static_cast<decInfo*>(captureMode);
    stages::note("find decoder " +
                 std::to_string(static_cast<std::uint32_t>(fourcc) == mode.format) + " " +
                 std::to_string(kind) + " '" + name + "'");
    const std::lock_guard<std::mutex> guard(world().lock);
    return world().decoderMissing ? nullptr : new FakeDecoder;
}
