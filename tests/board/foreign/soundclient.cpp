// A program that uses alsa-lib as any other would. What it sees it prints, one line an event.
//   soundclient capture DEVICE RATE CHANNELS FORMAT   reads until an error that stays, or input
//   ends soundclient playback DEVICE RATE CHANNELS FORMAT  the same, writing silence soundclient
//   notified DEVICE COUNT                 that many asynchronous notifications
#include <alsa/asoundlib.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr unsigned period = 1024, periods = 4;

void say(const char* what, long value) {
    std::printf("%s %ld\n", what, value);
    std::fflush(stdout);
}

[[noreturn]] void end(const char* what, long result) {
    std::printf("%s: %s\n", what, ::strerrorname_np(int(-result)));
    std::fflush(stdout);
    std::exit(result < 0 ? 3 : 0);
}

void must(const char* what, int result) {
    if (result < 0)
        end(what, result);
}

bool inputEnded() {
    pollfd input = {0, POLLIN, 0};
    char byte;
    return ::poll(&input, 1, 0) == 1 && ::read(0, &byte, 1) <= 0;
}

snd_pcm_t* open(const char* device, snd_pcm_stream_t direction, const char* format, unsigned rate,
                unsigned channels, unsigned bufferPeriods = periods) {
    snd_pcm_t* pcm = nullptr;
    must("open", snd_pcm_open(&pcm, device, direction, 0));
    snd_pcm_hw_params_t* params = nullptr;
    snd_pcm_hw_params_alloca(&params);
    must("any", snd_pcm_hw_params_any(pcm, params));
    must("access", snd_pcm_hw_params_set_access(pcm, params, SND_PCM_ACCESS_RW_INTERLEAVED));
    must("format", snd_pcm_hw_params_set_format(pcm, params, snd_pcm_format_value(format)));
    must("channels", snd_pcm_hw_params_set_channels(pcm, params, channels));
    must("rate", snd_pcm_hw_params_set_rate_near(pcm, params, &rate, nullptr));
    snd_pcm_uframes_t size = period;
    must("period", snd_pcm_hw_params_set_period_size_near(pcm, params, &size, nullptr));
    snd_pcm_uframes_t buffer = size * bufferPeriods;
    must("buffer", snd_pcm_hw_params_set_buffer_size_near(pcm, params, &buffer));
    must("parameters", snd_pcm_hw_params(pcm, params));
    must("period", snd_pcm_hw_params_get_period_size(params, &size, nullptr));
    say("rate", rate);
    say("period", long(size));
    return pcm;
}

// What a program does about a stream that stopped.
void restore(snd_pcm_t* pcm, long result) {
    std::printf("%s\n", ::strerrorname_np(int(-result)));
    std::fflush(stdout);
    if (result == -ESTRPIPE) {
        const int resumed = snd_pcm_resume(pcm);
        std::printf("resume %s\n", resumed == 0 ? "done" : ::strerrorname_np(-resumed));
        if (resumed == -EAGAIN)
            ::usleep(20000);
        // EBADFD: the card went on by itself meanwhile.
        if (resumed == 0 || resumed == -EAGAIN || resumed == -EBADFD)
            return;
    }
    const int prepared = snd_pcm_prepare(pcm);
    if (prepared == -ESTRPIPE)
        ::usleep(20000);  // the card sleeps
    else if (prepared != -EBUSY)
        must("prepare", prepared);
}

int move(bool capture, char** words) {
    const unsigned channels = unsigned(std::atoi(words[2]));
    snd_pcm_t* pcm = open(words[0], capture ? SND_PCM_STREAM_CAPTURE : SND_PCM_STREAM_PLAYBACK,
                          words[3], unsigned(std::atoi(words[1])), channels);
    std::vector<char> bytes(std::size_t(period) * channels * 8);
    bool moves = false;
    while (!inputEnded()) {
        const long result = capture ? snd_pcm_readi(pcm, bytes.data(), period)
                                    : snd_pcm_writei(pcm, bytes.data(), period);
        if (result == -ENODEV || result == -EIO)
            end("ended", result);
        if (result < 0)
            restore(pcm, result);
        else if (!moves)
            say("moves", result);
        moves = result > 0;
    }
    snd_pcm_close(pcm);
    return 0;
}

std::atomic<int> calls{0};
int wanted = 0;

void notified(snd_async_handler_t* handler) {
    snd_pcm_t* pcm = snd_async_handler_get_pcm(handler);
    static char bytes[period * 4 * periods];
    while (snd_pcm_avail_update(pcm) >= snd_pcm_sframes_t(period))
        snd_pcm_readi(pcm, bytes, period);
    ++calls;
}

int waitForNotifications(char** words) {
    wanted = std::atoi(words[1]);
    // What is in force again once the handler is taken away.
    std::signal(SIGIO, SIG_IGN);
    // Room for a busy machine: nobody restarts what overran.
    snd_pcm_t* pcm = open(words[0], SND_PCM_STREAM_CAPTURE, "S16_LE", 48000, 2, periods * 4);
    snd_async_handler_t* handler = nullptr;
    must("handler", snd_async_add_pcm_handler(&handler, pcm, notified, nullptr));
    must("start", snd_pcm_start(pcm));
    while (calls < wanted)
        ::pause();
    snd_pcm_status_t* status = nullptr;
    snd_pcm_status_alloca(&status);
    must("status", snd_pcm_status(pcm, status));
    say("calls", calls);
    say("state", snd_pcm_status_get_state(status));
    snd_pcm_close(pcm);
    return 0;
}

int chooseTimes(char** words) {
    snd_pcm_t* pcm = nullptr;
    must("open", snd_pcm_open(&pcm, words[0], SND_PCM_STREAM_CAPTURE, 0));
    snd_pcm_hw_params_t* params = nullptr;
    snd_pcm_hw_params_alloca(&params);
    unsigned rate = unsigned(std::atoi(words[1]));
    unsigned buffer_us = unsigned(std::atoi(words[2])), period_us = unsigned(std::atoi(words[3]));
    must("any", snd_pcm_hw_params_any(pcm, params));
    must("access", snd_pcm_hw_params_set_access(pcm, params, SND_PCM_ACCESS_RW_INTERLEAVED));
    must("format", snd_pcm_hw_params_set_format(pcm, params, SND_PCM_FORMAT_S16_LE));
    must("channels", snd_pcm_hw_params_set_channels(pcm, params, 2));
    must("rate", snd_pcm_hw_params_set_rate_near(pcm, params, &rate, nullptr));
    must("buffer", snd_pcm_hw_params_set_buffer_time_near(pcm, params, &buffer_us, nullptr));
    must("period", snd_pcm_hw_params_set_period_time_near(pcm, params, &period_us, nullptr));
    must("parameters", snd_pcm_hw_params(pcm, params));
    snd_pcm_uframes_t buffer = 0, size = 0;
    must("chosen", snd_pcm_get_params(pcm, &buffer, &size));
    say("buffer", long(buffer));
    say("period", long(size));
    snd_pcm_close(pcm);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 6 && std::strcmp(argv[1], "capture") == 0)
        return move(true, argv + 2);
    if (argc == 6 && std::strcmp(argv[1], "playback") == 0)
        return move(false, argv + 2);
    if (argc == 4 && std::strcmp(argv[1], "notified") == 0)
        return waitForNotifications(argv + 2);
    if (argc == 6 && std::strcmp(argv[1], "times") == 0)
        return chooseTimes(argv + 2);
    std::fprintf(stderr, "soundclient: see its source for its arguments\n");
    return 2;
}
