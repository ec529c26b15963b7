#include "control/audio/captureaudio.h"

#include "control/audio/hwparams.h"
#include "control/audio/openpcm.h"
#include "control/task/logline.h"
#include "control/task/msgaudio.h"

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <memory>
#include <thread>

namespace {

constexpr int captureCpus = 48;  // CPUs 4 and 5
constexpr std::size_t smallestReadBuf = 20000;
constexpr unsigned int bufferPeriods = 16;
constexpr long notificationWait_ns = 2000000;
constexpr auto idleStep = std::chrono::milliseconds(2);
// A device that fails at every notification must not fill the log.
constexpr auto troublePause = std::chrono::milliseconds(50);
// So long without a notification, and the device is asked whether it still runs.
constexpr auto silence = std::chrono::milliseconds(500);

}  // namespace

Captureaudio::Captureaudio(const audioInfo& audio) : audio(audio), readBuf(smallestReadBuf) {
    initCaptureAudio();
}

Captureaudio::~Captureaudio() {
    Captureaudio::close();
}

void Captureaudio::linkPlaybackReceiveHandler(Receive_handler* handler) {
    playbackReceiver = handler;
}

void Captureaudio::pushPcmData(const unsigned char* p, unsigned int n) {
    pcmBuffer.push(p, n);
}

unsigned int Captureaudio::popPcmData(unsigned char* out, unsigned int n) {
    return pcmBuffer.pop(out, n);
}

unsigned int Captureaudio::getPcmRemainLength() const {
    return pcmBuffer.length();
}

bool Captureaudio::initCaptureAudio() {
    logOut("init audio capture");
    initialised = openPcm(audio.device, SND_PCM_STREAM_CAPTURE, pcm.handle, pcm.log,
                          [this] { return SNDWAV_SetParams(&pcm); });
    if (!initialised) {
        pcm = {};
    }
    return initialised;
}

bool Captureaudio::SNDWAV_SetParams(SNDPCMContainer* container) {
    container->format = static_cast<snd_pcm_format_t>(audio.format);
    container->channels = audio.channels;
    snd_pcm_t* handle = container->handle.get();
    HwParams params(handle, {container->format, container->channels, audio.rate, bufferPeriods});
    const bool installed = params.install();
    const HwGrant& granted = params.granted();
    audio.rate = granted.rate;
    if (!installed) {
        return false;
    }
    if (snd_async_add_pcm_handler(&container->asyncHandler, handle, asyncHandlerCallback, this) <
        0) {
        logOut(" Error snd_async_add_pcm_handler(handle, params)");
        return false;
    }
    if (!params.readSizes()) {
        return false;
    }
    container->period_time = granted.requestedPeriodTime;
    container->chunk_size = granted.periodSize;
    container->buffer_size = granted.bufferSize;
    container->bits_per_sample = granted.bitsPerSample;
    container->bits_per_frame = granted.bitsPerFrame;
    container->period_bytes = granted.periodBytes;
    container->buffer_bytes = granted.bufferBytes;
    // A device may grant periods of any length.
    readBuf.resize(std::max<std::size_t>(smallestReadBuf, granted.periodBytes));
    std::vector<pollfd> polled(
        static_cast<std::size_t>(std::max(snd_pcm_poll_descriptors_count(handle), 0)));
    snd_pcm_poll_descriptors(handle, polled.data(), static_cast<unsigned int>(polled.size()));
    for (const pollfd& entry : polled) {
        descriptors.push_back(entry.fd);
    }
    return true;
}

int Captureaudio::close() {
    running = 0;
    wait();
    if (pcm.handle != nullptr) {
        snd_pcm_drain(pcm.handle.get());  // a capture device does not wait here
    }
    pcm.log.reset();
    pcm.asyncHandler = nullptr;
    pcm.handle.reset();
    return 0;
}

int Captureaudio::svc() {
    setThreadName("Captureaudio");
    setCpuCore(captureCpus, pthread_self());
    if (initialised) {
        captureUntilStopped();
    }
    while (running != 0) {
        std::this_thread::sleep_for(idleStep);
    }
    logOut("Captureaudio", "svc", " normal stop!");
    return 0;
}

void Captureaudio::captureUntilStopped() {
    startDevice();
    auto lastSign = std::chrono::steady_clock::now();
    while (running != 0) {
        if (getPcmRemainLength() >= pcm.period_bytes) {
            sendPeriod();
            continue;
        }
        const auto now = std::chrono::steady_clock::now();
        if (waitForNotification()) {
            lastSign = now;
            asyncHandlerCallback(pcm.asyncHandler);
            if (troubled) {
                std::this_thread::sleep_for(troublePause);
            }
        } else if (now - lastSign >= silence) {
            lastSign = now;
            reviveDevice();
        }
    }
}

// At most 2 ms. True when a notification of this device came.
bool Captureaudio::waitForNotification() {
    sigset_t awaited;
    sigemptyset(&awaited);
    sigaddset(&awaited, SIGIO);
    const timespec limit{0, notificationWait_ns};
    siginfo_t notification{};
    return sigtimedwait(&awaited, &notification, &limit) == SIGIO && isOurs(notification);
}

// A signal that was not sent for a descriptor may have swallowed one that was.
bool Captureaudio::isOurs(const siginfo_t& notification) const {
    const bool namesDescriptor =
        notification.si_code >= POLL_IN && notification.si_code <= POLL_HUP;
    return !namesDescriptor || std::find(descriptors.begin(), descriptors.end(),
                                         notification.si_fd) != descriptors.end();
}

void Captureaudio::asyncHandlerCallback(snd_async_handler_t* handler) {
    auto* self = static_cast<Captureaudio*>(snd_async_handler_get_callback_private(handler));
    self->asyncCaptureHandler(handler);
}

void Captureaudio::asyncCaptureHandler(snd_async_handler_t* handler) {
    troubled = false;
    if (running == 0) {
        return;
    }
    snd_pcm_t* device = snd_async_handler_get_pcm(handler);
    snd_pcm_sframes_t avail = snd_pcm_avail_update(device);
    if (avail < 0) {
        reportAvailError("0.avail error = ", avail);
        return;
    }
    const auto chunk = static_cast<snd_pcm_sframes_t>(pcm.chunk_size);
    // A period is read only while strictly more than one is there.
    while (running != 0 && chunk < avail) {
        const snd_pcm_sframes_t before = avail;
        if (!readPeriod(device)) {
            return;
        }
        avail = snd_pcm_avail_update(device);
        if (avail < 0) {
            reportAvailError("1.avail error = ", avail);
            return;
        }
        if (troubled && avail >= before) {
            return;  // nothing was read: it would fail again
        }
    }
}

// False when this notification has nothing more to give.
bool Captureaudio::readPeriod(snd_pcm_t* device) {
    const snd_pcm_sframes_t frames = snd_pcm_readi(device, readBuf.data(), pcm.chunk_size);
    if (frames == -ENODEV) {
        return false;
    }
    if (frames == -EPIPE) {
        logOut("SNDWAV_ReadPcm <<<<<<<<<<<<<<< Buffer Underrun >>>>>>>>>>>>>>>");
        restartDevice();
        return false;
    }
    if (frames < 0) {
        logOut("ret error = ", frames);
        troubled = true;
        return true;
    }
    pushPcmData(readBuf.data(), static_cast<unsigned int>(static_cast<std::uint64_t>(frames) *
                                                          pcm.bits_per_frame / 8));
    return true;
}

void Captureaudio::reportAvailError(const char* label, snd_pcm_sframes_t error) {
    logOut(label, error);
    if (error == -EPIPE) {
        restartDevice();
    }
    troubled = true;
}

void Captureaudio::startDevice() {
    const int result = snd_pcm_start(pcm.handle.get());
    if (result < 0 && !startRefused) {
        logErr("Cannot start '", audio.device, "': ", -result, ", ", snd_strerror(result));
    }
    startRefused = result < 0;
}

void Captureaudio::restartDevice() {
    troubled = true;
    if (snd_pcm_prepare(pcm.handle.get()) == 0) {
        startDevice();
    }
}

// A device that stopped, or never started, gives no notification that would tell.
void Captureaudio::reviveDevice() {
    switch (snd_pcm_state(pcm.handle.get())) {
        case SND_PCM_STATE_PREPARED:
            startDevice();
            break;
        case SND_PCM_STATE_XRUN:
        case SND_PCM_STATE_SETUP:
        case SND_PCM_STATE_SUSPENDED:
            restartDevice();
            break;
        default:
            break;
    }
}

void Captureaudio::sendPeriod() {
    auto msg = std::make_unique<msgAudio>();
    msg->channels = audio.channels;
    msg->rate = audio.rate;
    msg->format = audio.format;
    msg->data[0] = new unsigned char[pcm.period_bytes];
    msg->length[0] = popPcmData(msg->data[0], static_cast<unsigned int>(pcm.period_bytes));
    if (playbackReceiver != nullptr) {
        playbackReceiver->receive_handler(msg.release(), 0);
    }
}
