#include "control/decode/decoder_mjpeg_mpp.h"

#include "control/decode/mpplog.h"
#include "control/decode/mppprivate.h"
#include "control/decode/mppshow.h"
#include "control/task/logline.h"
#include "control/task/msgvideo.h"

#include <chrono>
#include <cstdlib>
#include <cstring>

std::atomic<Decoder_MJPEG_MPP*> Decoder_MJPEG_MPP::mjpegmpp_dev{nullptr};

namespace {

constexpr int queueLimit = 5;
constexpr int pollSlice_ms = 50;  // a stopped worker is noticed this soon
constexpr RK_U32 abortOnAssertion = 1U << 28;
// The numbers that these lines always had in the log.
constexpr int inputAssertionLine = 300;
constexpr int outputAssertionLine = 324;

// Whether a task came without an error and yet not at all.
bool isMissing(MppTask task, int line) {
    if (task != nullptr) {
        return false;
    }
    mppErr("Assertion %s failed at %s:%d\n", "task", "mpi_dec_process", line);
    if (&mpp_debug != nullptr && (mpp_debug & abortOnAssertion) != 0) {
        std::abort();
    }
    return true;
}

}  // namespace

Decoder_MJPEG_MPP::Decoder_MJPEG_MPP(void* captureMode)
    : captureFormat(static_cast<const decInfo*>(captureMode)) {
    mjpegmpp_dev = this;
}

Decoder_MJPEG_MPP::~Decoder_MJPEG_MPP() {
    Decoder_MJPEG_MPP::close();
    if (opened != 0) {
        Decoder_MJPEG_MPP::decoder_close();
    }
    opened = 0;
    Decoder_MJPEG_MPP* self = this;
    mjpegmpp_dev.compare_exchange_strong(self, nullptr);
}

DecCommon* Decoder_MJPEG_MPP::getMjpegMppDecoderDev(void* captureMode) {
    return new Decoder_MJPEG_MPP(captureMode);
}

int Decoder_MJPEG_MPP::close() {
    return stopDecoder("mjpeg mpp close remain avpacket queue :");
}

int Decoder_MJPEG_MPP::svc() {
    return runDecoder("Decoder_MJPEG_MPP");
}

int Decoder_MJPEG_MPP::decoder_open() {
    logOut("mjpeg mpp decoder open");
    if (DisplayDrm::getDrmDev() == nullptr) {
        logOut("mjpeg mpp decoder set channels faild");
        opened = 0;
        return 0;
    }
    logOut("mjpeg mpp decoder channels ", slots.size());
    bool anyReady = false;
    for (Slot& slot : slots) {
        slot.ready = mpi_dec_init(slot.channel) == MPP_OK && slot.channel.usable();
        if (!slot.ready) {
            mpi_dec_destroy(slot.channel);
        }
        anyReady = anyReady || slot.ready;
    }
    if (!anyReady) {
        logOut("mjpeg mpp decoder open faild");
        opened = 0;
        return 0;
    }
    logOut("mjpeg mpp decoder open succeed");
    activate(static_cast<int>(slots.size()));
    threads.assign(startedThreads().begin(), startedThreads().end());
    if (threads.empty()) {  // nobody would notice a decoder that takes no frame
        destroyChannels();
        logOut("mjpeg mpp decoder open faild");
        return 0;
    }
    opened = 1;
    return 1;
}

int Decoder_MJPEG_MPP::decoder_close() {
    if (opened != 1) {
        return 0;
    }
    logOut("mjpeg mpp decoder close");
    destroyChannels();
    logOut("mjpeg mpp decoder close succeed");
    opened = 0;
    return 1;
}

void Decoder_MJPEG_MPP::destroyChannels() {
    for (Slot& slot : slots) {
        mpi_dec_destroy(slot.channel);
        slot.ready = false;
    }
}

MPP_RET Decoder_MJPEG_MPP::mpi_dec_init(MpiDecLoopData_Dec& channel) {
    channel.describe(*captureFormat, MPP_VIDEO_CodingMJPEG);
    return mpi_dec_decode(channel);
}

MPP_RET Decoder_MJPEG_MPP::mpi_dec_decode(MpiDecLoopData_Dec& channel) {
    return channel.mpi_dec_decode();
}

MPP_RET Decoder_MJPEG_MPP::mpi_dec_destroy(MpiDecLoopData_Dec& channel) {
    channel.destroy();
    return MPP_OK;
}

Decoder_MJPEG_MPP::MpiDecLoopData_Dec* Decoder_MJPEG_MPP::channelOfThisThread() {
    const pthread_t self = pthread_self();
    for (std::size_t i = 0; i < threads.size() && i < slots.size(); ++i) {
        if (pthread_equal(threads[i], self) != 0 && slots[i].ready) {
            return &slots[i].channel;
        }
    }
    return nullptr;
}

int Decoder_MJPEG_MPP::decoder_process(void* msg, void* /*unused*/) {
    if (MpiDecLoopData_Dec* channel = channelOfThisThread()) {
        mpi_dec_process(*channel, msg);
    }
    return 0;
}

MPP_RET Decoder_MJPEG_MPP::mpi_dec_process(MpiDecLoopData_Dec& channel, void* msg) {
    const msgVideo& message = *static_cast<msgVideo*>(msg);
    const std::size_t length = message.length[0];
    if (message.data[0] == nullptr || length == 0) {
        mppErr("%p frame without data dropped\n", channel.ctx);
        return MPP_NOK;
    }
    if (!channel.makeRoom(length)) {
        return MPP_ERR_NOMEM;
    }
    std::memcpy(channel.packetMemory, message.data[0], length);
    mpp_packet_set_pos(channel.packet, channel.packetMemory);
    mpp_packet_set_length(channel.packet, length);
    const MPP_RET ret = submit(channel);
    return ret == MPP_OK ? collect(channel, msg) : ret;
}

// Waits as long as the worker runs, in slices: MPP_ERR_TIMEOUT means that it shall end.
MPP_RET Decoder_MJPEG_MPP::waitForPort(const MpiDecLoopData_Dec& channel, MppPortType port) const {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds slice(pollSlice_ms);
    while (running != 0) {
        const auto start = Clock::now();
        const MPP_RET ret =
            channel.mpi->poll(channel.ctx, port, static_cast<MppPollType>(pollSlice_ms));
        // Not every generation of the library has a result of its own for a time-out.
        const bool timedOut = ret == MPP_ERR_TIMEOUT || Clock::now() - start >= slice;
        if (ret == MPP_OK || !timedOut) {
            return ret;
        }
    }
    return MPP_ERR_TIMEOUT;
}

MPP_RET Decoder_MJPEG_MPP::submit(MpiDecLoopData_Dec& channel) const {
    MPP_RET ret = waitForPort(channel, MPP_PORT_INPUT);
    if (ret != MPP_OK) {
        if (ret != MPP_ERR_TIMEOUT) {
            mppErr("%p mpp input poll failed\n", channel.ctx);
        }
        return ret;
    }
    MppTask task = nullptr;
    ret = channel.mpi->dequeue(channel.ctx, MPP_PORT_INPUT, &task);
    if (ret != MPP_OK) {
        mppErr("%p mpp task input dequeue failed\n", channel.ctx);
        return ret;
    }
    if (isMissing(task, inputAssertionLine)) {
        return MPP_NOK;
    }
    mpp_task_meta_set_packet(task, KEY_INPUT_PACKET, channel.packet);
    mpp_task_meta_set_frame(task, KEY_OUTPUT_FRAME, channel.frame);
    ret = channel.mpi->enqueue(channel.ctx, MPP_PORT_INPUT, task);
    if (ret != MPP_OK) {
        mppErr("%p mpp task input enqueue failed\n", channel.ctx);
    }
    return ret;
}

MPP_RET Decoder_MJPEG_MPP::collect(MpiDecLoopData_Dec& channel, void* msg) {
    MPP_RET ret = waitForPort(channel, MPP_PORT_OUTPUT);
    if (ret != MPP_OK) {
        if (ret != MPP_ERR_TIMEOUT) {
            mppErr("%p mpp output poll failed\n", channel.ctx);
        }
        return ret;
    }
    MppTask task = nullptr;
    ret = channel.mpi->dequeue(channel.ctx, MPP_PORT_OUTPUT, &task);
    if (ret != MPP_OK) {
        mppErr("%p mpp task output dequeue failed\n", channel.ctx);
        return ret;
    }
    if (isMissing(task, outputAssertionLine)) {
        return MPP_NOK;
    }
    MppFrame decoded = nullptr;
    mpp_task_meta_get_frame(task, KEY_OUTPUT_FRAME, &decoded);
    if (decoded != nullptr) {
        dump_mpp_frame_to_queue(decoded, msg, nullptr);
        if (mpp_frame_get_eos(decoded) != 0) {
            mppLog("%p found eos frame\n", channel.ctx);
        }
    }
    ret = channel.mpi->enqueue(channel.ctx, MPP_PORT_OUTPUT, task);
    if (ret != MPP_OK) {
        mppErr("%p mpp task output enqueue failed\n", channel.ctx);
    }
    return ret;
}

void Decoder_MJPEG_MPP::dump_mpp_frame_to_queue(void* frame, void* msg, void* /*unused*/) {
    const msgVideo& message = *static_cast<msgVideo*>(msg);
    MppPicture picture;
    if (!readMppFrame(frame, picture)) {
        return;
    }
    // One worker at a time from the question which frame is newer to the ring: otherwise both get
    // the same buffer of it.
    const std::lock_guard<std::mutex> lock(showLock);
    if (!(message.pts > lastShownPts) || !nameMppFormat(picture)) {
        return;
    }
    DisplayDrm* display = DisplayDrm::getDrmDev();
    if (display == nullptr) {
        return;
    }
    showMppPicture(*display, picture, message.pts, message.pts);
    lastShownPts = message.pts;
}

int Decoder_MJPEG_MPP::receive_handler(void* msg, unsigned int /*arg*/) {
    return putq(msg);
}

bool Decoder_MJPEG_MPP::queueAllow_angler() {
    return getqSize() < queueLimit;
}
