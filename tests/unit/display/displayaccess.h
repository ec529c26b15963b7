// A look behind the display object, and one with memory but without a card.
#pragma once

#include "control/display/displaydrm.h"

#include <vector>

struct DisplayDrmTestAccess {
    static constexpr int slots = DisplayDrm::bufferCount;

    static DisplayDrm::buffer_object& slot(DisplayDrm& display, int index) {
        return display.bufs.at(static_cast<std::size_t>(index));
    }
    static DisplayDrm::buffer_object& blank(DisplayDrm& display) { return display.blankBuf; }
    static int writeIndex(const DisplayDrm& display) { return display.writeIndex; }
    static int readIndex(const DisplayDrm& display) { return display.readIndex; }
    static bool ready(const DisplayDrm& display, int index) {
        return display.slotReady.at(static_cast<std::size_t>(index));
    }
    static int readyCount(const DisplayDrm& display) {
        int count = 0;
        for (const auto& ready : display.slotReady) {
            count += ready ? 1 : 0;
        }
        return count;
    }
    static double lastShownPts(const DisplayDrm& display) { return display.lastShownPts; }
    static void setDequeueWait(DisplayDrm& display, int milliseconds) {
        display.dequeueWaitMs = milliseconds;
    }
    static bool upgradeBanner(const DisplayDrm& display) { return display.upgradeBanner; }
    static bool startupBanner(const DisplayDrm& display) { return display.startupBanner; }
    static std::atomic<bool>& upgradeScreen(DisplayDrm& display) { return display.upgradeScreen; }
    static int modeIndex(const DisplayDrm& display) { return display.modeIndex; }
    static const std::uint32_t* crtcId(const DisplayDrm& display) { return &display.crtcId; }
    static const drmEventContext& events(const DisplayDrm& display) { return display.evctx; }
    // Holds the consumer's lock while `action` runs.
    template <typename Action>
    static void whileReadLocked(DisplayDrm& display, const Action& action) {
        const std::lock_guard<std::mutex> lock(display.readLock);
        action();
    }
    // Holds what keeps the process's display from going while others change it.
    template <typename Action>
    static void whileDisplayKept(const Action& action) {
        const std::lock_guard<std::mutex> lock(DisplayDrm::drmdevLock);
        action();
    }
    static void releaseUnlocked(DisplayDrm& display) {
        display.slotReady.at(static_cast<std::size_t>(display.readIndex)) = false;
        display.readIndex = DisplayDrm::advance(display.readIndex);
    }
};

// The process's display, with buffers in plain memory.
class DisplayWithMemory {
  public:
    DisplayWithMemory(unsigned width, unsigned height, unsigned pitch)
        : display(decInfo{0, width, height, 60}),
          memory(DisplayDrmTestAccess::slots,
                 std::vector<unsigned char>(static_cast<std::size_t>(pitch) * height * 3 / 2)) {
        for (int i = 0; i < DisplayDrmTestAccess::slots; ++i) {
            DisplayDrm::buffer_object& slot = DisplayDrmTestAccess::slot(display, i);
            slot.width = width;
            slot.height = height;
            slot.pitch = pitch;
            slot.vaddr = memory[static_cast<std::size_t>(i)].data();
        }
    }
    ~DisplayWithMemory() {
        for (int i = 0; i < DisplayDrmTestAccess::slots; ++i) {
            DisplayDrmTestAccess::slot(display, i).vaddr = nullptr;  // not the card's to unmap
        }
    }

    DisplayDrm display;
    std::vector<std::vector<unsigned char>> memory;
};
