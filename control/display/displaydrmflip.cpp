// The cycle of page flips: each completed flip queues the next one.
#include "control/display/displaydrm.h"
#include "control/display/drmcard.h"
#include "control/task/logline.h"

#include <poll.h>
#include <cerrno>
#include <thread>

namespace {

constexpr int eventSlice_ms = 50;
constexpr std::chrono::milliseconds errorPause{10};
// A flip takes 42 ms in the slowest mode; after this long its event may be lost.
constexpr std::chrono::milliseconds flipPatience{1000};
constexpr std::chrono::milliseconds busyPatience{100};
// Frames closer than this to the last shown one are skipped, in ms.
constexpr double shortestDistance = 10.0;

}  // namespace

bool DisplayDrm::queueFlip(std::uint32_t framebuffer) {
    const bool queued =
        drmModePageFlip(drmFd.get(), crtcId, framebuffer, DRM_MODE_PAGE_FLIP_EVENT, &crtcId) == 0;
    const bool busy = !queued && errno == EBUSY;
    if (!queued && !flipRefused) {
        reportDrmFailure("queue a page flip, which is tried again");
    }
    flipRefused = !queued;
    // One that was given up is still on its way: its event goes on with the cycle. Another one to
    // the blank buffer would come between all frames from then on.
    flipPending = queued || busy;
    flipDue = std::chrono::steady_clock::now() + (busy ? busyPatience : flipPatience);
    return queued;
}

// A card refuses a second flip while one is on its way: one that takes it has lost the event.
void DisplayDrm::recoverLostFlip() {
    flipDue = std::chrono::steady_clock::now() + flipPatience;
    if (drmModePageFlip(drmFd.get(), crtcId, blankBuf.fb_id, DRM_MODE_PAGE_FLIP_EVENT, &crtcId) !=
            0 &&
        errno != EBUSY) {
        flipPending = false;
    }
}

void DisplayDrm::updateImage() {
    if (!flipPending && (blankBuf.fb_id == 0 || !queueFlip(blankBuf.fb_id))) {
        std::this_thread::sleep_for(errorPause);
        return;
    }
    pollfd events{drmFd.get(), POLLIN, 0};
    const int ready = poll(&events, 1, eventSlice_ms);
    bool failed = ready < 0 && errno != EINTR;
    // Only where no event waits: a banner stands longer than a flip may take.
    if (ready == 0 && std::chrono::steady_clock::now() >= flipDue) {
        recoverLostFlip();
    }
    if (ready > 0) {
        // A device that went away is readable at once and for ever.
        failed = (events.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
        if ((events.revents & POLLIN) != 0) {
            failed = drmHandleEvent(drmFd.get(), &evctx) != 0 || failed;
        }
    }
    if (failed) {
        std::this_thread::sleep_for(errorPause);
    }
}

void modeset_page_flip_handler(int /*fd*/, unsigned int /*sequence*/, unsigned int /*tv_sec*/,
                               unsigned int /*tv_usec*/, void* /*user_data*/) {
    DisplayDrm* display = DisplayDrm::getDrmDev();
    if (display != nullptr) {
        display->flipPending = false;
        if (!display->showStillPicture()) {
            display->showNextFrame();
        }
    }
}

void DisplayDrm::showNextFrame() {
    int index = 0;
    unsigned int width = 0;
    unsigned int height = 0;
    double pts = 0.0;
    for (;;) {
        if (!deQueue(&index, &width, &height, &pts)) {
            queueFlip(blankBuf.fb_id);
            logOut("show control getq timeout");
            return;
        }
        if (pts == unpacedPts) {
            break;
        }
        if (pts - lastShownPts >= shortestDistance) {
            lastShownPts = pts;
            break;
        }
        release();
    }
    const bool flipped = queueFlip(bufs[index].fb_id);
    release();
    if (flipped) {
        ++flipCount;
    }
}

int DisplayDrm::takeFlipCount() {
    return flipCount.exchange(0);
}
