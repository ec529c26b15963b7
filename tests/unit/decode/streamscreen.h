// A decoder on the real decoder library, and what it brings onto a display of the same size.
#pragma once

#include "control/convert/rkrga.h"
#include "control/decode/deccommon.h"
#include "control/task/msgvideo.h"

#include "tests/unit/decode/streams.h"
#include "tests/unit/display/displayaccess.h"
#include "tests/unit/task/printed.h"
#include "tests/unit/task/waiting.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

class StreamScreen {
  public:
    struct Shown {
        double pts = 0;
        streams::Bytes picture;  // NV12
    };

    StreamScreen(unsigned width, unsigned height) : screen_(width, height, width) {
        DisplayDrmTestAccess::setDequeueWait(screen_.display, 0);
    }

    void play(std::unique_ptr<DecCommon> decoder) {
        decoder_ = std::move(decoder);
        ASSERT_EQ(decoder_->decoder_open(), 1);
    }
    // Ends the decoder: it must not take long, whatever it is at.
    void stop() {
        const auto start = Clock::now();
        decoder_.reset();
        EXPECT_LT(millisecondsSince(start), 2000.0);
    }
    // Waits until the decoder takes one more, as the capture task would come back.
    void send(const streams::Bytes& payload, double pts) {
        ASSERT_TRUE(comesTrue([this] { return decoder_->queueAllow_angler(); }));
        auto* message = new msgVideo;
        message->data[0] = new unsigned char[payload.size()];
        std::copy(payload.begin(), payload.end(), message->data[0]);
        message->length[0] = static_cast<std::uint32_t>(payload.size());
        message->pts = pts;
        decoder_->receive_handler(message, 0);
    }
    bool waitForShown(int count) {
        return comesTrue([&] { return ready() >= count; }, std::chrono::seconds(30));
    }
    int queued() { return decoder_->getqSize(); }
    int ready() { return DisplayDrmTestAccess::readyCount(screen_.display); }
    bool take(Shown& shown) {
        int index = -1;
        unsigned width = 0, height = 0;
        if (!screen_.display.deQueue(&index, &width, &height, &shown.pts)) {
            return false;
        }
        shown.picture = screen_.memory.at(static_cast<std::size_t>(index));
        screen_.display.release();
        return true;
    }

  private:
    DisplayWithMemory screen_;
    RkRga engine_;
    std::unique_ptr<DecCommon> decoder_;
};
