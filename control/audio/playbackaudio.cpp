#include "control/audio/playbackaudio.h"

#include "control/audio/hwparams.h"
#include "control/audio/openpcm.h"
#include "control/task/logline.h"
#include "control/task/msgaudio.h"

#include <algorithm>
#include <thread>

namespace {

constexpr int playbackCpus = 48;  // CPUs 4 and 5
constexpr char outputDevice[] = "hw:0,0";
constexpr std::size_t smallestBuffer = 20000;
constexpr unsigned int bufferPeriods = 3;
constexpr int closingWait_ms = 5;
constexpr auto drainReserve = std::chrono::milliseconds(200);
constexpr auto drainStep = std::chrono::milliseconds(2);

}  // namespace

PlaybackAudio::PlaybackAudio(const audioInfo& source, const audioInfo& device)
    : source(source),
      device(device),
      playBuf(smallestBuffer),
      resampleBuf(smallestBuffer),
      spareBuf(smallestBuffer) {
    this->device.device = outputDevice;
    if (source.channels != device.channels || source.format != device.format ||
        source.rate != device.rate) {
        resampler = std::make_unique<AudioResample>(this->source, this->device);
        need_resample = true;
        resampleBuf.resize(std::max<std::size_t>(smallestBuffer, resampler->outputLimit()));
    }
    initPlaybackAudio();
    activate(1);
    writerStarted = pthread_create(&resampleThread, nullptr, svc_run_resamplePlay, this) == 0;
}

PlaybackAudio::~PlaybackAudio() {
    PlaybackAudio::close();
}

int PlaybackAudio::receive_handler(void* msg, unsigned int /*arg*/) {
    putq(msg);
    return 1;
}

bool PlaybackAudio::queueAllow_angler() {
    return true;
}

void PlaybackAudio::pushPcmData(const unsigned char* data, unsigned int len) {
    pcmFifo.push(data, len);
}

unsigned int PlaybackAudio::popPcmData(unsigned char* dst, unsigned int len) {
    return pcmFifo.pop(dst, len);
}

unsigned int PlaybackAudio::getPcmRemainLength() const {
    return pcmFifo.length();
}

bool PlaybackAudio::initPlaybackAudio() {
    logOut("init audio playback");
    playback_ready = openPcm(device.device, SND_PCM_STREAM_PLAYBACK, pcm.handle, pcm.log,
                             [this] { return SNDWAV_SetParams(&pcm); });
    if (!playback_ready) {
        pcm = {};
    }
    return playback_ready;
}

bool PlaybackAudio::SNDWAV_SetParams(SNDPCMContainer* container) {
    container->format = static_cast<snd_pcm_format_t>(device.format);
    container->channels = device.channels;
    HwParams params(container->handle.get(),
                    {container->format, container->channels, device.rate, bufferPeriods});
    const bool installed = params.install();
    const HwGrant& granted = params.granted();
    device.rate = granted.rate;
    if (!installed || !params.readSizes()) {
        return false;
    }
    container->period_time = granted.periodTime;
    container->period_size = granted.periodSize;
    container->buffer_size = granted.bufferSize;
    container->bits_per_sample = granted.bitsPerSample;
    container->bits_per_frame = granted.bitsPerFrame;
    container->period_bytes = granted.periodBytes;
    container->buffer_bytes = granted.bufferBytes;
    // A device may grant periods of any length.
    playBuf.resize(std::max<std::size_t>(smallestBuffer, granted.periodBytes));
    return true;
}

int PlaybackAudio::svc() {
    setThreadName("PlaybackAudio");
    setCpuCore(playbackCpus, pthread_self());
    while (running != 0) {
        void* msg = nullptr;
        if (getq(&msg, waitTimeout_ms) != 1) {
            logOut("PlaybackAudio getq timeout");
            continue;
        }
        const std::unique_ptr<msgAudio> chunk(static_cast<msgAudio*>(msg));
        take(*chunk);
    }
    logOut("PlaybackAudio", "svc", " normal stop!");
    return 0;
}

void PlaybackAudio::take(const msgAudio& chunk) {
    if (!playback_ready || chunk.data[0] == nullptr) {
        return;  // nobody would ever take it from the FIFO
    }
    if (need_resample) {
        resample(chunk.data[0], chunk.length[0]);
    } else {
        pushPcmData(chunk.data[0], chunk.length[0]);
    }
}

// The resampler takes 1024 frames at most; what a longer captured period leaves over waits for the
// next one.
void PlaybackAudio::resample(const unsigned char* data, unsigned int length) {
    const unsigned int chunkBytes = AudioResample::chunkFrames * resampler->sourceFrameBytes();
    if (remainder.empty() && length <= chunkBytes) {
        resampleChunk(data, length);
        return;
    }
    remainder.insert(remainder.end(), data, data + length);
    std::size_t done = 0;
    for (; remainder.size() - done >= chunkBytes; done += chunkBytes) {
        resampleChunk(remainder.data() + done, chunkBytes);
    }
    remainder.erase(remainder.begin(), remainder.begin() + static_cast<std::ptrdiff_t>(done));
}

void PlaybackAudio::resampleChunk(const unsigned char* data, unsigned int length) {
    unsigned int converted = 0;
    if (resampler->resampleProcess(data, length, resampleBuf.data(), &converted)) {
        pushPcmData(resampleBuf.data(), converted);
    }
}

int PlaybackAudio::close() {
    waitTimeout_ms = closingWait_ms;
    running = 0;
    if (writerStarted) {
        pthread_join(resampleThread, nullptr);
        writerStarted = false;
    }
    wait();
    if (pcm.handle != nullptr) {
        drainDevice();
    }
    pcm.log.reset();
    pcm.handle.reset();
    void* msg = nullptr;
    while (getq(&msg, waitTimeout_ms) == 1) {
        delete static_cast<msgAudio*>(msg);
    }
    pcmFifo.clear();
    return 0;
}

// A device that stands still would hold a waiting drain for many seconds.
void PlaybackAudio::drainDevice() {
    snd_pcm_t* handle = pcm.handle.get();
    const auto bufferTime = std::chrono::microseconds(pcm.buffer_size * 1000000 / device.rate);
    const auto deadline = std::chrono::steady_clock::now() + bufferTime + drainReserve;
    snd_pcm_nonblock(handle, 1);
    while (snd_pcm_drain(handle) == -EAGAIN) {
        if (std::chrono::steady_clock::now() >= deadline) {
            snd_pcm_drop(handle);
            return;
        }
        std::this_thread::sleep_for(drainStep);
    }
}
