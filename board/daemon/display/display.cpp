#include "board/daemon/display.h"

#include "board/daemon/display/card.h"
#include "board/daemon/display/flipfigures.h"
#include "board/daemon/display/recorder.h"
#include "board/daemon/display/screenfiles.h"
#include "board/daemon/jobworker.h"

#include <drm_fourcc.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

namespace board {

namespace {

constexpr char cardPath[] = "/dev/dri/card0";
constexpr unsigned cardMajor = 226;
constexpr unsigned maxDumpedFrames = 64;
constexpr std::size_t maxWaitingJobs = 8;  // each may hold a picture
constexpr char tooMuchWaiting[] = "too many pictures are waiting to be written; try again";

using Done = std::function<void(const std::string&)>;

std::uint32_t in100us(std::int64_t board_ns) {
    return std::uint32_t(board_ns / 100000);
}

}  // namespace

class Display::Impl {
  public:
    Impl(Board& board, const DisplayDescription& description)
        : board_(board), card_(board, description, [this](std::int64_t board_ns, bool flip) {
              pictureChanged(board_ns, flip);
          }) {}

    Board& board() { return board_; }
    Card& card() { return card_; }
    FlipFigures& figures() { return figures_; }
    void picture(const std::string& path, const Done& done);
    std::string startRecording(const std::string& path);
    void stopRecording(const Done& done);
    void dumpFrames(const std::string& folder, unsigned count, Done done);
    void setStampLookup(StampLookup lookup) { lookup_ = std::move(lookup); }
    void setWatcher(Watcher* watcher) { watcher_ = watcher; }
    OnScreen onScreen() const;

  private:
    struct Dump {
        std::string folder;
        unsigned wanted = 0;
        std::vector<DumpedFrame> frames;
        Done done;
    };

    // What is known about the picture on screen.
    struct Shown {
        std::optional<Stamp> stamp;
        std::uint32_t mark = 0;     // the number as it stands in the picture
        std::int64_t taken_ns = 0;  // 0: unknown
        std::int64_t shown_ns = 0;
    };

    void pictureChanged(std::int64_t board_ns, bool flip);
    void note(const std::optional<Stamp>& stamp, std::uint32_t mark, std::int64_t board_ns);
    void tell(const FlipStep* step);
    void dumpOne(const ScreenView& view, const Stamp& stamp, std::int64_t board_ns);
    ScreenView visible() const;
    // Runs a job on the worker and hands its error line to `done` on the loop's thread.
    void onWorker(std::function<std::string()> job, const Done& done);

    Board& board_;
    Card card_;
    FlipFigures figures_;
    StampLookup lookup_;
    Watcher* watcher_ = nullptr;
    Shown shown_;
    std::uint64_t changes_ = 1, flips_ = 0;  // the black before the first picture counts
    std::unique_ptr<Dump> dump_;
    std::unique_ptr<Recorder> recorder_;
    // Stopped ones whose thread may still write.
    std::vector<std::unique_ptr<Recorder>> ending_;
    JobWorker worker_{maxWaitingJobs};
    // Expires with the display: what was posted to the loop before must not touch it after.
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);
};

void Display::Impl::pictureChanged(std::int64_t board_ns, bool flip) {
    const ScreenView view = card_.crtc().screen();
    std::optional<Stamp> stamp = readStamp(view);
    const std::optional<Stamp>& asked = card_.crtc().askedMark();
    const bool overwritten = asked && !view.black() && !(stamp && *stamp == *asked);
    const std::uint32_t mark = stamp ? stamp->frame : 0;
    if (stamp && lookup_)
        stamp = lookup_(*stamp);
    note(stamp, mark, board_ns);
    FlipStep step;
    if (flip) {
        ++flips_;
        step = figures_.count(stamp, in100us(board_.clock().now_ns()), overwritten);
        if (step.isNew && dump_ != nullptr)
            dumpOne(view, *stamp, board_ns);
    }
    if (recorder_ != nullptr)
        recorder_->offer(visible(), EventLoop::now_ns(), board_ns);
    if (watcher_ != nullptr)
        tell(flip ? &step : nullptr);
}

void Display::Impl::note(const std::optional<Stamp>& stamp, std::uint32_t mark,
                         std::int64_t board_ns) {
    ++changes_;
    shown_ = {stamp, mark, 0, board_ns};
    if (!stamp)
        return;
    const std::int64_t now_100us = board_.clock().now_ns() / 100000;
    const auto age_100us = std::int32_t(std::uint32_t(now_100us) - stamp->time_100us);
    // A mark from the future is another run's: its time says nothing.
    if (age_100us >= 0)
        shown_.taken_ns = (now_100us - age_100us) * 100000;
}

void Display::Impl::tell(const FlipStep* step) {
    if (step == nullptr)
        return watcher_->screenChanged(nullptr);
    wire::ViewFlip flip{};
    flip.shown_ns = shown_.shown_ns;
    flip.taken_ns = shown_.taken_ns;
    flip.flip = flips_;
    flip.marked = shown_.stamp ? 1 : 0;
    flip.frame = shown_.stamp ? shown_.stamp->frame : 0;
    flip.repeated = step->repeated ? 1 : 0;
    flip.skipped = step->skipped;
    watcher_->screenChanged(&flip);
}

OnScreen Display::Impl::onScreen() const {
    OnScreen result;
    result.change = changes_;
    wire::ViewPicture& picture = result.picture;
    const ScreenView view = visible();
    picture.width = view.width;
    picture.height = view.height;
    picture.shown_ns = shown_.shown_ns;
    picture.flip = flips_;
    if (view.black())
        return result;
    picture.format = view.format;
    picture.marked = shown_.stamp ? 1 : 0;
    picture.frame = shown_.stamp ? shown_.stamp->frame : 0;
    picture.mark = shown_.mark;
    picture.taken_ns = shown_.taken_ns;
    const Framebuffer& source = *card_.crtc().onScreen();
    for (unsigned plane = 0; plane < planeCount(view.format); ++plane) {
        const DumbBuffer& memory = *source.buffers[plane];
        picture.offsets[plane] = std::uint32_t(view.planes[plane] - memory.data());
        picture.pitches[plane] = view.pitches[plane];
        if (plane == 0 || source.buffers[1] != source.buffers[0])
            result.descriptors[plane] = memory.readableMemfd();
    }
    return result;
}

void Display::Impl::dumpOne(const ScreenView& view, const Stamp& stamp, std::int64_t board_ns) {
    DumpedFrame frame;
    frame.frame = stamp.frame;
    frame.time_100us = in100us(board_ns);
    copyScreen(view, frame.picture);
    dump_->frames.push_back(std::move(frame));
    if (dump_->frames.size() < dump_->wanted)
        return;
    const std::shared_ptr<Dump> finished = std::move(dump_);
    onWorker([finished] { return writeDump(finished->frames, finished->folder); }, finished->done);
}

ScreenView Display::Impl::visible() const {
    ScreenView view = card_.crtc().screen();
    if (view.width != 0)
        return view;
    const std::vector<DisplayMode>& modes = card_.description().modes;
    view.format = DRM_FORMAT_XRGB8888;
    view.width = modes.empty() ? 640 : modes.front().hdisplay;
    view.height = modes.empty() ? 480 : modes.front().vdisplay;
    return view;
}

void Display::Impl::onWorker(std::function<std::string()> job, const Done& done) {
    EventLoop& loop = board_.loop();
    const bool taken = worker_.run([&loop, job = std::move(job), done] {
        const std::string line = job();
        loop.post([line, done] { done(line); });
    });
    if (!taken)
        loop.post([done] { done(tooMuchWaiting); });
}

void Display::Impl::picture(const std::string& path, const Done& done) {
    const auto snapshot = std::make_shared<Snapshot>();
    copyScreen(visible(), *snapshot);
    onWorker([snapshot, path] { return writePng(*snapshot, path); }, done);
}

std::string Display::Impl::startRecording(const std::string& path) {
    if (recorder_ != nullptr)
        return "a recording is running already; stop it first";
    const ScreenView view = visible();
    std::string problem;
    auto recorder = std::make_unique<Recorder>(path, view.width, view.height, &problem);
    if (!problem.empty())
        return problem;
    recorder_ = std::move(recorder);
    // What is on screen now, which may stay there for long.
    recorder_->offer(view, EventLoop::now_ns(), board_.clock().now_ns());
    return {};
}

void Display::Impl::stopRecording(const Done& done) {
    if (recorder_ == nullptr) {
        board_.loop().post([done] { done("no recording is running"); });
        return;
    }
    Recorder* recorder = recorder_.get();
    ending_.push_back(std::move(recorder_));
    EventLoop& loop = board_.loop();
    const std::weak_ptr<int> alive = alive_;
    recorder->stop([this, &loop, alive, recorder, done](const std::string& line) {
        loop.post([this, alive, recorder, done, line] {
            if (!alive.expired()) {
                ending_.erase(std::find_if(ending_.begin(), ending_.end(), [&](const auto& other) {
                    return other.get() == recorder;
                }));
            }
            done(line);
        });
    });
}

void Display::Impl::dumpFrames(const std::string& folder, unsigned count, Done done) {
    if (count == 0 || count > maxDumpedFrames) {
        const std::string line = "cannot dump " + std::to_string(count) + " frames: 1 to " +
                                 std::to_string(maxDumpedFrames) + " are possible";
        board_.loop().post([done, line] { done(line); });
        return;
    }
    if (dump_ != nullptr) {
        const Done previous = std::move(dump_->done);
        board_.loop().post([previous] { previous("another dump took this one's place"); });
    }
    dump_ = std::make_unique<Dump>();
    dump_->folder = folder;
    dump_->wanted = count;
    dump_->done = std::move(done);
}

Display::Display(Board& board, const DisplayDescription& description)
    : impl_(std::make_unique<Impl>(board, description)) {}

Display::~Display() = default;

void Display::addCard() {
    impl_->board().addNode(cardPath, cardMajor, 0, impl_->card());
}

void Display::plug() {
    impl_->card().plug();
}

void Display::unplug() {
    impl_->card().unplug();
}

bool Display::plugged() const {
    return impl_->card().plugged();
}

void Display::replaceDescription(const DisplayDescription& description) {
    impl_->card().replaceDescription(description);
}

void Display::setStampLookup(StampLookup lookup) {
    impl_->setStampLookup(std::move(lookup));
}

void Display::setWatcher(Watcher* watcher) {
    impl_->setWatcher(watcher);
}

OnScreen Display::onScreen() const {
    return impl_->onScreen();
}

void Display::holdFlips(bool held) {
    impl_->card().crtc().holdFlips(held);
}

void Display::loseFlipEvent() {
    impl_->card().crtc().loseEvents(1);
}

DisplayFigures Display::figures() const {
    DisplayFigures result = impl_->figures().figures();
    const Crtc& crtc = impl_->card().crtc();
    if (crtc.on()) {
        const drm_mode_modeinfo& mode = crtc.mode();
        const bool interlaced = (mode.flags & DRM_MODE_FLAG_INTERLACE) != 0;
        result.mode = std::to_string(mode.hdisplay) + "x" + std::to_string(mode.vdisplay) +
                      (interlaced ? "i" : "") + "@" + std::to_string(std::lround(refresh_Hz(mode)));
    }
    return result;
}

void Display::resetFigures() {
    impl_->figures().reset();
}

void Display::picture(const std::string& path,
                      const std::function<void(const std::string&)>& done) {
    impl_->picture(path, done);
}

std::string Display::startRecording(const std::string& path) {
    return impl_->startRecording(path);
}

void Display::stopRecording(const std::function<void(const std::string&)>& done) {
    impl_->stopRecording(done);
}

void Display::dumpFrames(const std::string& folder, unsigned count,
                         std::function<void(const std::string&)> done) {
    impl_->dumpFrames(folder, count, std::move(done));
}

}  // namespace board
