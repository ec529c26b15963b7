#include "engine/mpp/streamdecoder.h"

extern "C" {
#include <libavutil/frame.h>
}

#include <algorithm>
#include <utility>

namespace mpp {
namespace {

// Bits of MppDecQueryCfg::rt_wait.
constexpr RK_U32 forPacket = 1;
constexpr RK_U32 forRoom = 2;
constexpr RK_U32 forAnswer = 4;

}  // namespace

MPP_RET StreamDecoder::put(const Packet& packet) {
    const Packet::Bytes bytes = packet.unread();
    const bool eos = (packet.flag & Packet::flagEos) != 0;
    if (bytes.size == 0 && !eos) {
        return MPP_OK;  // nothing to decode
    }
    Lock lock(channel_.doorbell->mutex);
    const auto hasRoom = [this] { return packets_.size() < packetsThatWait; };
    const MPP_RET result = channel_.wait(lock, channel_.settings.inputTimeout, hasRoom);
    if (result != MPP_OK) {
        return result == MPP_ERR_TIMEOUT ? MPP_ERR_BUFFER_FULL : result;
    }
    Data data;
    data.bytes.assign(bytes.data, bytes.data + bytes.size);
    data.pts = packet.pts;
    data.eos = eos;
    data.split = channel_.settings.splitPackets;
    packets_.push_back(std::move(data));
    channel_.countPacket(bytes.size);
    channel_.doorbell->bell.notify_all();
    return MPP_OK;
}

MPP_RET StreamDecoder::get(Frame*& frame) {
    frame = nullptr;
    Lock lock(channel_.doorbell->mutex);
    const RK_S64 timeout = channel_.settings.outputTimeout;
    const MPP_RET result = channel_.wait(lock, timeout, [this] { return !frames_.empty(); });
    if (result != MPP_OK) {
        return timeout == 0 ? MPP_OK : result;
    }
    frame = frames_.front().detach();
    frames_.pop_front();
    if (frame->info.infoChange == 0) {
        ++channel_.counts.framesOut;
    }
    channel_.doorbell->bell.notify_all();
    return MPP_OK;
}

MPP_RET StreamDecoder::reset() {
    std::deque<Ref<Frame>> released;  // after the lock: their buffers may ring the doorbell
    Lock lock(channel_.doorbell->mutex);
    ++channel_.epoch;
    packets_.clear();
    released.swap(frames_);
    channel_.doorbell->bell.notify_all();
    channel_.doorbell->bell.wait(lock, [this] { return channel_.ending || !interrupted(); });
    lock.unlock();
    return MPP_OK;
}

void StreamDecoder::work() {
    const std::shared_ptr<Doorbell> doorbell = channel_.doorbell;
    Lock lock(doorbell->mutex);
    for (;;) {
        doorbell->bell.wait(lock, [this] { return interrupted() || !packets_.empty(); });
        if (channel_.ending) {
            return;
        }
        busy_ = true;
        waitsFor_ = 0;
        if (interrupted()) {
            const unsigned epoch = channel_.epoch;
            lock.unlock();
            forget();
            lock.lock();
            handledEpoch_ = epoch;
        } else {
            const Data data = std::move(packets_.front());
            packets_.pop_front();
            doorbell->bell.notify_all();
            lock.unlock();
            decode(data);
            lock.lock();
        }
        busy_ = false;
        waitsFor_ = forPacket;
        doorbell->bell.notify_all();
    }
}

void StreamDecoder::forget() {
    units_.clear();
    avc_.flush();
    numbers_.forget();
    unit_ = 0;
    key_ = -1;
    damaged_.clear();
}

void StreamDecoder::noteDamage(std::int64_t unit) {
    // A stream may go on for hours without a key frame, and the first ones are those that count.
    constexpr std::size_t most = 64;
    if (damaged_.size() == most) {
        damaged_.pop_back();
    }
    damaged_.push_back(unit);
}

bool StreamDecoder::decode(const Data& data) {
    units_.push(data.bytes.data(), data.bytes.size(), data.pts, data.split);
    if (data.eos) {
        units_.end();
    }
    AccessUnit unit;
    while (units_.next(unit)) {
        if (!decodeUnit(unit)) {
            return false;
        }
    }
    return !data.eos || finishStream();
}

bool StreamDecoder::decodeUnit(const AccessUnit& unit) {
    const PictureSize size = avc_.load(unit);
    if (!size.known()) {
        return true;  // without parameter sets, or with broken ones, there is no picture
    }
    if (size != agreed_) {
        // All pictures of the old size come first.
        avc_.drain();
        if (!giveOutPictures()) {
            return false;
        }
        avc_.flush();
        if (!agreeOn(size)) {
            return false;
        }
    }
    {
        const Lock lock(channel_.doorbell->mutex);
        ++channel_.counts.worked;
    }
    const std::int64_t number = unit_++;
    const bool missing = numbers_.missingBefore(unit);
    const bool sent = avc_.send(number);
    if (missing || (!sent && unit.hasSlice)) {
        noteDamage(number);
    }
    return giveOutPictures();
}

bool StreamDecoder::giveOutPictures() {
    while (const AVFrame* picture = avc_.receive()) {
        if (!giveOut(*picture)) {
            return false;
        }
    }
    return true;
}

// What the picture's content is worth.
void StreamDecoder::judge(const AVFrame& picture, FrameInfo& info) {
    const bool own =
        (picture.flags & AV_FRAME_FLAG_CORRUPT) != 0 || picture.decode_error_flags != 0;
    const std::int64_t number = numberOf(picture);
    const auto before = [number](std::int64_t unit) { return unit <= number; };
    if (own) {
        noteDamage(number);
    } else if (picture.key_frame != 0) {
        key_ = number;
        damaged_.erase(std::remove_if(damaged_.begin(), damaged_.end(), before), damaged_.end());
    }
    const bool inherited = std::any_of(damaged_.begin(), damaged_.end(), before);
    info.discard = key_ < 0 ? 1 : 0;
    const Lock lock(channel_.doorbell->mutex);
    if (channel_.settings.hideErrors) {
        return;
    }
    info.errinfo = own ? MPP_FRAME_ERR_DEC_INVALID : inherited ? MPP_FRAME_ERR_DEC_MISS_REF : 0;
}

bool StreamDecoder::giveOut(const AVFrame& picture) {
    const PictureSize size = sizeOf(picture);
    if (size != agreed_ && !agreeOn(size)) {
        return false;
    }
    Ref<Frame> frame = Ref<Frame>::adopt(new Frame);
    frame->info = infoOf(size);
    frame->info.pts = picture.pts;
    judge(picture, frame->info);
    if (!formatOf(picture, frame->info.format)) {
        frame->info.errinfo |= MPP_FRAME_ERR_UNSUPPORT;
        return put(std::move(frame));
    }
    MPP_RET result = MPP_OK;
    frame->buffer = waitForBuffer(frame->info.bufSize, result);
    if (frame->buffer) {
        copyPicture(picture, frame->info, frame->buffer->data());
    } else if (result == MPP_OK) {
        return false;
    } else {
        frame->info.errinfo |= MPP_FRAME_ERR_UNKNOW;
    }
    return put(std::move(frame));
}

Ref<Buffer> StreamDecoder::waitForBuffer(std::size_t size, MPP_RET& result) {
    Lock lock(channel_.doorbell->mutex);
    Ref<Buffer> buffer;
    const auto ready = [&] {
        if (interrupted()) {
            result = MPP_OK;
            return true;
        }
        if (!channel_.settings.group) {
            return false;
        }
        buffer = Ref<Buffer>::adopt(channel_.settings.group->take(size, result));
        return buffer || result != MPP_ERR_NOMEM;
    };
    waitsFor_ = forRoom;
    channel_.doorbell->bell.wait(lock, ready);
    waitsFor_ = 0;
    return buffer;
}

// Tells the program the size and waits until it has made room.
bool StreamDecoder::agreeOn(const PictureSize& size) {
    Ref<Frame> frame = Ref<Frame>::adopt(new Frame);
    frame->info = infoOf(size);
    frame->info.infoChange = 1;
    Lock lock(channel_.doorbell->mutex);
    const unsigned answers = channel_.settings.changesAnswered;
    if (!interrupted()) {
        frames_.push_back(std::move(frame));
        channel_.doorbell->bell.notify_all();
    }
    waitsFor_ = forAnswer;
    channel_.doorbell->bell.wait(
        lock, [&] { return interrupted() || channel_.settings.changesAnswered != answers; });
    waitsFor_ = 0;
    if (interrupted()) {
        return false;
    }
    agreed_ = size;
    return true;
}

bool StreamDecoder::put(Ref<Frame> frame) {
    Lock lock(channel_.doorbell->mutex);
    waitsFor_ = forRoom;
    channel_.doorbell->bell.wait(
        lock, [this] { return interrupted() || frames_.size() < framesThatWait; });
    waitsFor_ = 0;
    if (interrupted()) {
        lock.unlock();  // before the frame's buffer goes back
        return false;
    }
    frames_.push_back(std::move(frame));
    channel_.doorbell->bell.notify_all();
    return true;
}

// Everything that is held back, the last one marked as the end.
bool StreamDecoder::finishStream() {
    avc_.drain();
    if (!giveOutPictures()) {
        return false;
    }
    avc_.flush();
    Ref<Frame> end = Ref<Frame>::adopt(new Frame);
    end->info = infoOf(agreed_);
    end->info.eos = 1;
    end->info.errinfo = MPP_FRAME_ERR_UNKNOW;  // no picture
    return put(std::move(end));
}

}  // namespace mpp
