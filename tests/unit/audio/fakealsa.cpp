#include "tests/unit/audio/fakealsa.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

namespace {

FakePcm* installed = nullptr;

}  // namespace

FakePcm::FakePcm() {
    installed = this;
}

FakePcm::~FakePcm() {
    installed = nullptr;
}

FakePcm& FakePcm::current() {
    return *installed;
}

void FakePcm::fail(const std::string& function, int error) {
    const std::lock_guard<std::mutex> guard(lock_);
    failing_[function] = -error;
}

void FakePcm::heal(const std::string& function) {
    const std::lock_guard<std::mutex> guard(lock_);
    failing_.erase(function);
}

void FakePcm::deliver(snd_pcm_uframes_t frames, bool notifyToo) {
    {
        const std::lock_guard<std::mutex> guard(lock_);
        available_ += frames;
    }
    if (notifyToo) {
        notify();
    }
}

void FakePcm::notify() {
    ::kill(::getpid(), SIGIO);
}

void FakePcm::setState(snd_pcm_state_t state) {
    state_ = state;
}

std::vector<unsigned char> FakePcm::written() const {
    const std::lock_guard<std::mutex> guard(lock_);
    return written_;
}

std::vector<std::string> FakePcm::calls() const {
    const std::lock_guard<std::mutex> guard(lock_);
    return calls_;
}

unsigned FakePcm::count(const std::string& call) const {
    const std::lock_guard<std::mutex> guard(lock_);
    return static_cast<unsigned>(std::count(calls_.begin(), calls_.end(), call));
}

bool FakePcm::waitFor(const std::string& call, unsigned times) {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, std::chrono::seconds(20), [&] {
        return std::count(calls_.begin(), calls_.end(), call) >= times;
    });
}

int FakePcm::answer(const std::string& function, const std::string& argument) {
    const std::lock_guard<std::mutex> guard(lock_);
    calls_.push_back(argument.empty() ? function : function + " " + argument);
    changed_.notify_all();
    const auto failing = failing_.find(function);
    return failing == failing_.end() ? 0 : failing->second;
}

snd_pcm_sframes_t FakePcm::avail() {
    ++callbackRuns;
    const int result = answer("avail_update");
    const std::lock_guard<std::mutex> guard(lock_);
    return result < 0 ? result : static_cast<snd_pcm_sframes_t>(available_);
}

// Every frame carries its number.
snd_pcm_sframes_t FakePcm::read(void* buffer, snd_pcm_uframes_t frames) {
    const int result = answer("readi");
    if (result < 0) {
        return result;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    const snd_pcm_uframes_t taken = std::min(frames, available_);
    for (snd_pcm_uframes_t i = 0; i < taken; ++i) {
        std::memcpy(static_cast<char*>(buffer) + i * frameBytes, &position_,
                    std::min<std::size_t>(frameBytes, sizeof position_));
        ++position_;
    }
    available_ -= taken;
    return static_cast<snd_pcm_sframes_t>(taken);
}

snd_pcm_sframes_t FakePcm::write(const void* data, snd_pcm_uframes_t frames) {
    snd_pcm_sframes_t result = onWrite ? onWrite(frames) : static_cast<snd_pcm_sframes_t>(frames);
    const auto* bytes = static_cast<const unsigned char*>(data);
    if (result > 0) {
        const std::lock_guard<std::mutex> guard(lock_);
        written_.insert(written_.end(), bytes, bytes + std::size_t(result) * frameBytes);
    }
    answer("writei");
    return result;
}

int FakePcm::start() {
    const int result = answer("start");
    if (result == 0) {
        state_ = SND_PCM_STATE_RUNNING;
    }
    return result;
}

int FakePcm::prepare() {
    const int result = answer("prepare");
    if (result == 0) {
        state_ = SND_PCM_STATE_PREPARED;
    }
    return result;
}

BlockedNotification::BlockedNotification() {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGIO);
    pthread_sigmask(SIG_BLOCK, &blocked, &before_);
}

BlockedNotification::~BlockedNotification() {
    // What nobody took is dropped here, not delivered.
    sigset_t pending;
    sigemptyset(&pending);
    sigaddset(&pending, SIGIO);
    const timespec now{};
    while (sigtimedwait(&pending, nullptr, &now) == SIGIO) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

// alsa-lib's functions, as far as the code under test uses them.
extern "C" {

int snd_pcm_open(snd_pcm_t** pcm, const char* name, snd_pcm_stream_t stream, int mode) {
    FakePcm& fake = FakePcm::current();
    const bool capture = stream == SND_PCM_STREAM_CAPTURE;
    const int result =
        fake.answer("open", std::string(name) + (capture ? " capture" : " playback") +
                                (mode == 0 ? "" : " not blocking"));
    if (result == 0) {
        *pcm = fake.handle();
        ++fake.open_;
    }
    return result;
}

int snd_pcm_close(snd_pcm_t*) {
    --FakePcm::current().open_;
    return FakePcm::current().answer("close");
}

int snd_pcm_dump(snd_pcm_t*, snd_output_t*) {
    return FakePcm::current().answer("dump");
}

int snd_pcm_hw_params_any(snd_pcm_t*, snd_pcm_hw_params_t*) {
    return FakePcm::current().answer("hw_params_any");
}

int snd_pcm_hw_params_set_access(snd_pcm_t*, snd_pcm_hw_params_t*, snd_pcm_access_t access) {
    return FakePcm::current().answer("set_access", std::to_string(access));
}

int snd_pcm_hw_params_set_format(snd_pcm_t*, snd_pcm_hw_params_t*, snd_pcm_format_t format) {
    return FakePcm::current().answer("set_format", std::to_string(format));
}

int snd_pcm_hw_params_set_channels(snd_pcm_t*, snd_pcm_hw_params_t*, unsigned channels) {
    return FakePcm::current().answer("set_channels", std::to_string(channels));
}

int snd_pcm_hw_params_set_rate_near(snd_pcm_t*, snd_pcm_hw_params_t*, unsigned* rate,
                                    int* direction) {
    FakePcm& fake = FakePcm::current();
    const int result =
        fake.answer("set_rate_near", std::to_string(*rate) + " " + std::to_string(*direction));
    if (fake.grantedRate != 0) {
        *rate = fake.grantedRate;
    }
    return result;
}

int snd_pcm_hw_params_get_buffer_time_max(const snd_pcm_hw_params_t*, unsigned* time, int*) {
    *time = FakePcm::current().bufferTimeMax;
    return FakePcm::current().answer("get_buffer_time_max");
}

int snd_pcm_hw_params_set_buffer_time_near(snd_pcm_t*, snd_pcm_hw_params_t*, unsigned* time, int*) {
    return FakePcm::current().answer("set_buffer_time_near", std::to_string(*time));
}

int snd_pcm_hw_params_set_period_time_near(snd_pcm_t*, snd_pcm_hw_params_t*, unsigned* time, int*) {
    return FakePcm::current().answer("set_period_time_near", std::to_string(*time));
}

int snd_pcm_hw_params(snd_pcm_t*, snd_pcm_hw_params_t*) {
    return FakePcm::current().answer("hw_params");
}

int snd_pcm_hw_params_get_period_size(const snd_pcm_hw_params_t*, snd_pcm_uframes_t* size, int*) {
    *size = FakePcm::current().periodSize;
    return 0;
}

int snd_pcm_hw_params_get_buffer_size(const snd_pcm_hw_params_t*, snd_pcm_uframes_t* size) {
    *size = FakePcm::current().bufferSize;
    return 0;
}

int snd_async_add_pcm_handler(snd_async_handler_t** handler, snd_pcm_t* pcm,
                              snd_async_callback_t callback, void* data) {
    FakePcm& fake = FakePcm::current();
    fake.callback = callback;
    fake.callbackData = data;
    *handler = reinterpret_cast<snd_async_handler_t*>(pcm);
    return fake.answer("async_add_pcm_handler");
}

void* snd_async_handler_get_callback_private(snd_async_handler_t*) {
    return FakePcm::current().callbackData;
}

snd_pcm_t* snd_async_handler_get_pcm(snd_async_handler_t* handler) {
    return reinterpret_cast<snd_pcm_t*>(handler);
}

int snd_pcm_poll_descriptors_count(snd_pcm_t*) {
    return 1;
}

int snd_pcm_poll_descriptors(snd_pcm_t*, pollfd* descriptors, unsigned) {
    descriptors[0].fd = 1000;
    return 1;
}

snd_pcm_sframes_t snd_pcm_avail_update(snd_pcm_t*) {
    return FakePcm::current().avail();
}

snd_pcm_sframes_t snd_pcm_readi(snd_pcm_t*, void* buffer, snd_pcm_uframes_t frames) {
    return FakePcm::current().read(buffer, frames);
}

snd_pcm_sframes_t snd_pcm_writei(snd_pcm_t*, const void* data, snd_pcm_uframes_t frames) {
    return FakePcm::current().write(data, frames);
}

int snd_pcm_wait(snd_pcm_t*, int) {
    FakePcm& fake = FakePcm::current();
    return fake.onWait ? fake.onWait() : 1;
}

int snd_pcm_start(snd_pcm_t*) {
    return FakePcm::current().start();
}

int snd_pcm_prepare(snd_pcm_t*) {
    return FakePcm::current().prepare();
}

int snd_pcm_drain(snd_pcm_t*) {
    return FakePcm::current().answer("drain");
}

int snd_pcm_drop(snd_pcm_t*) {
    return FakePcm::current().answer("drop");
}

int snd_pcm_nonblock(snd_pcm_t*, int) {
    return FakePcm::current().answer("nonblock");
}

snd_pcm_state_t snd_pcm_state(snd_pcm_t*) {
    FakePcm::current().answer("state");
    return FakePcm::current().state();
}

}  // extern "C"
