#include "board/media/jpegloop.h"

#include <linux/videodev2.h>

#include <algorithm>

namespace board {

namespace {

// A payload in pieces, cut off where the room ends.
class Pieces {
  public:
    Pieces(std::uint8_t* destination, std::size_t capacity)
        : destination_(destination), capacity_(capacity) {}
    void add(const std::uint8_t* bytes, std::size_t count) {
        if (length_ < capacity_)
            std::copy_n(bytes, std::min(count, capacity_ - length_), destination_ + length_);
        length_ += count;
    }
    std::size_t length() const { return length_; }

  private:
    std::uint8_t* destination_;
    std::size_t capacity_;
    std::size_t length_ = 0;
};

void drawStamp(JpegPlanes& planes, const Stamp& stamp) {
    drawStampLuma(planes.y.data(), 1, planes.stride, planes.width, stamp);
    const std::uint32_t cell = stampCell(planes.width);
    const std::uint32_t columns = (stampColumns * cell + 1) / 2;
    const std::uint32_t lines =
        planes.fullChromaHeight ? stampRows * cell : (stampRows * cell + 1) / 2;
    for (std::uint32_t line = 0; line < lines; ++line) {
        const auto first = std::ptrdiff_t(std::size_t(line) * (planes.stride / 2));
        std::fill_n(planes.u.begin() + first, columns, std::uint8_t(128));
        std::fill_n(planes.v.begin() + first, columns, std::uint8_t(128));
    }
}

}  // namespace

JpegLoop::JpegLoop(const PictureLoop& pictures, unsigned quality) : quality_(quality) {
    const bool packed = pictures.fourcc == V4L2_PIX_FMT_YUYV;
    const auto planesOf = packed ? planesOfYuyv : planesOfYu12;
    const std::uint32_t markLines = stampRows * stampCell(pictures.width);
    for (const auto& picture : pictures.pictures) {
        Frame frame;
        const JpegPlanes whole =
            planesOf(picture.data(), pictures.width, pictures.height, pictures.height);
        const std::vector<std::uint8_t> jpeg = encodeJpeg(whole, quality);
        const JpegRows rows = findRows(jpeg);
        if (markLines != 0 && markLines <= pictures.height)
            markRows_ = (markLines + whole.rowLines() - 1) / whole.rowLines();
        frame.head.assign(jpeg.begin(), jpeg.begin() + std::ptrdiff_t(rows.first));
        const std::size_t behind = markRows_ == 0 ? rows.first : rows.next.at(markRows_ - 1);
        frame.tail.assign(jpeg.begin() + std::ptrdiff_t(behind), jpeg.end());
        if (markRows_ != 0)
            frame.top = planesOf(picture.data(), pictures.width, pictures.height,
                                 markRows_ * whole.rowLines());
        frames_.push_back(std::move(frame));
    }
}

std::size_t JpegLoop::compose(std::uint32_t /*index*/, const Stamp& stamp,
                              std::uint8_t* destination, std::size_t capacity) const {
    const Frame& frame = frames_[stamp.frame % frames_.size()];
    Pieces payload(destination, capacity);
    payload.add(frame.head.data(), frame.head.size());
    if (markRows_ != 0) {
        JpegPlanes top = frame.top;
        drawStamp(top, stamp);
        const std::vector<std::uint8_t> jpeg = encodeJpeg(top, quality_);
        const JpegRows rows = findRows(jpeg);
        payload.add(jpeg.data() + rows.first, rows.next.back() - 2 - rows.first);
        // The marker that divides these rows from the others, or ends the picture.
        const std::uint8_t restart[] = {0xff, std::uint8_t(0xd0 + (markRows_ - 1) % 8)};
        const std::uint8_t end[] = {0xff, 0xd9};
        payload.add(frame.tail.empty() ? end : restart, 2);
    }
    payload.add(frame.tail.data(), frame.tail.size());
    return payload.length();
}

}  // namespace board
