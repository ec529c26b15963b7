#include "board/media/frameloop.h"

#include "board/media/h264encoder.h"
#include "board/media/jpegloop.h"
#include "board/media/mediapackets.h"
#include "board/media/packetloop.h"
#include "board/media/recording.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <stdexcept>

namespace board {

namespace {

using Ready = std::function<void(const std::shared_ptr<const FrameLoop>&)>;

// More than can be under way between camera and screen (a queue of 100, a ring of 36, what a
// decoder holds), so that a place in the loop says which delivery it was. A program that gets
// little of a busy machine drops most frames in front of its queue, and what it shows may be
// hundreds of frames old: longer where that takes a fraction of a second to encode. Where it leaves
// out most of a loop, only a scenario's own length helps.
constexpr std::uint32_t shortestMarkedLoop = 192;
constexpr std::uint32_t longestMarkedLoop = 1024;
constexpr std::uint64_t markedPixels = 160000000;

std::uint32_t markedLoopLength(const FrameLoopWish& wish) {
    const std::uint64_t pixels =
        std::max<std::uint64_t>(std::uint64_t(wish.width) * wish.height, 1);
    const std::uint64_t bySize =
        std::clamp<std::uint64_t>(markedPixels / pixels, shortestMarkedLoop, longestMarkedLoop);
    const std::uint32_t frames =
        wish.encoding.loopFrames != 0 ? wish.encoding.loopFrames : std::uint32_t(bySize);
    const std::uint32_t distance = std::max(wish.encoding.keyFrameDistance, 1u);
    return (frames + distance - 1) / distance * distance;  // whole groups
}

class RawLoop : public FrameLoop {
  public:
    explicit RawLoop(PictureLoop pictures) : pictures_(std::move(pictures)) {}
    std::size_t compose(std::uint32_t /*index*/, const Stamp& stamp, std::uint8_t* destination,
                        std::size_t capacity) const override {
        if (capacity < pictures_.pictureBytes) {
            std::vector<std::uint8_t> whole(pictures_.pictureBytes);
            composeFrame(pictures_, stamp.frame, stamp.time_100us, whole.data());
            std::copy_n(whole.data(), capacity, destination);
        } else {
            composeFrame(pictures_, stamp.frame, stamp.time_100us, destination);
        }
        return pictures_.pictureBytes;
    }

  private:
    PictureLoop pictures_;
};

PictureLoop rawPictures(const FrameLoopWish& wish, std::uint32_t fourcc) {
    return loadPictures(wish.recording, fourcc, wish.width, wish.height,
                        loopLength(wish.width, wish.height));
}

// There and back: a loop without a jump in it, which would cost bits.
std::uint32_t thereAndBack(std::uint32_t index, std::size_t count) {
    if (count == 1)
        return 0;
    const auto place = std::uint32_t(index % (2 * count - 2));
    return place < count ? place : std::uint32_t(2 * count - 2) - place;
}

void encodeH264(const FrameLoopWish& wish, const std::function<bool()>& goOn, const Ready& ready) {
    PictureLoop pictures = rawPictures(wish, V4L2_PIX_FMT_YUV420);
    const std::uint32_t length = markedLoopLength(wish);
    const auto loop = std::make_shared<PacketLoop>(length, wish.encoding.parameterSetsEvery, true);
    H264Encoder encoder(wish.width, wish.height, wish.encoding,
                        [&loop](MediaPacket packet) { loop->add(std::move(packet)); });
    // So many are encoded before a stream begins, fewer where each takes long: nobody waits for a
    // camera for ever.
    const std::uint32_t lead = loopLength(wish.width, wish.height);
    bool said = false;
    const auto say = [&] {
        if (!said)
            ready(loop);
        said = true;
    };
    std::vector<std::uint8_t> picture(pictures.pictureBytes);
    for (std::uint32_t place = 0; place < length && goOn(); ++place) {
        const std::uint32_t source = thereAndBack(place, pictures.pictures.size());
        composeStamped(pictures, source, {place, stampInLoop}, picture.data());
        encoder.encode(picture.data());
        if (loop->has(lead))
            say();
    }
    encoder.finish();
    say();
}

bool sendsFile(const FrameLoopWish& wish, const Ready& ready) {
    std::vector<MediaPacket> packets =
        readPackets(wish.recording, wish.fourcc, wish.width, wish.height);
    if (packets.empty())
        return false;
    const auto loop = std::make_shared<PacketLoop>(std::uint32_t(packets.size()), 1, false);
    for (MediaPacket& packet : packets)
        loop->add(std::move(packet));
    ready(loop);
    return true;
}

}  // namespace

bool canMakeFrames(std::uint32_t fourcc) {
    return canLoadPictures(fourcc) || fourcc == V4L2_PIX_FMT_MJPEG || fourcc == V4L2_PIX_FMT_H264;
}

void makeFrameLoop(const FrameLoopWish& wish, const std::function<bool()>& goOn,
                   const Ready& ready) {
    const bool compressed = canMakeFrames(wish.fourcc) && !canLoadPictures(wish.fourcc);
    if (compressed && sendsFile(wish, ready))
        return;
    if (wish.fourcc == V4L2_PIX_FMT_H264) {
        encodeH264(wish, goOn, ready);
    } else if (wish.fourcc == V4L2_PIX_FMT_MJPEG) {
        const bool full = wish.encoding.fullChromaHeight;
        ready(std::make_shared<JpegLoop>(
            rawPictures(wish, full ? V4L2_PIX_FMT_YUYV : V4L2_PIX_FMT_YUV420),
            wish.encoding.quality));
    } else {
        ready(std::make_shared<RawLoop>(rawPictures(wish, wish.fourcc)));
    }
}

}  // namespace board
