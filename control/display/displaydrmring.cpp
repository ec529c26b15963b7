// The ring of frames between one producer and the page flips.
#include "control/display/displaydrm.h"
#include "control/task/logline.h"

#include <thread>

using std::chrono::milliseconds;

namespace {

constexpr int closingWait_ms = 5;

}  // namespace

bool DisplayDrm::slotsFull() const {
    return writeIndex == readIndex && slotReady[writeIndex];
}

bool DisplayDrm::enQueue(unsigned char** buffer, unsigned int width, unsigned int height,
                         double pts, int waitLimit) {
    const std::lock_guard<std::mutex> lock(writeLock);
    int waited = 0;
    while (slotsFull()) {
        if (closing || (waitLimit != 0 && waited >= waitLimit)) {
            dropQueued();
            break;
        }
        std::this_thread::sleep_for(milliseconds(waitLimit != 0 ? 1 : 2));
        ++waited;
    }
    buffer_object& slot = bufs[writeIndex];
    *buffer = slot.vaddr;
    slot.frameWidth = width;
    slot.frameHeight = height;
    slot.pts = pts;
    return true;
}

// Throws all queued frames away but the oldest, which is about to be shown.
void DisplayDrm::dropQueued() {
    const std::lock_guard<std::mutex> lock(readLock);
    // The consumer may have released a slot since it was looked at without this lock.
    if (!slotsFull()) {
        return;
    }
    logOut("clean queue buff");
    const int kept = writeIndex;
    for (int i = 0; i < bufferCount; ++i) {
        if (i != kept) {
            slotReady[i] = false;
        }
    }
    writeIndex = advance(kept);
}

void DisplayDrm::enQueueEnd() {
    const std::scoped_lock locks(readLock, writeLock);
    slotReady[writeIndex] = true;
    writeIndex = advance(writeIndex);
}

bool DisplayDrm::deQueue(int* index, unsigned int* width, unsigned int* height, double* pts) {
    for (int waited = 0;; ++waited) {
        const int oldest = readIndex;
        if (slotReady[oldest]) {
            const buffer_object& slot = bufs[oldest];
            *index = oldest;
            *width = slot.frameWidth;
            *height = slot.frameHeight;
            *pts = slot.pts;
            return true;
        }
        if (waited >= dequeueWaitMs) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(1));
    }
}

bool DisplayDrm::release() {
    const std::lock_guard<std::mutex> lock(readLock);
    slotReady[readIndex] = false;
    readIndex = advance(readIndex);
    return true;
}

void DisplayDrm::cleanQueue() {
    const std::lock_guard<std::mutex> lock(readLock);
    for (std::atomic<bool>& ready : slotReady) {
        ready = false;
    }
    writeIndex = 0;
    readIndex = 0;
}

void DisplayDrm::stopWaiting() {
    dequeueWaitMs = closingWait_ms;
    closing = true;
}
