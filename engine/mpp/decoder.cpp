#include "engine/mpp/decoder.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>

namespace mpp {
namespace {

// A pinned thread of the program may have made the decoder, which stands for hardware beside the
// CPU: its thread runs where the whole program may.
void runWhereTheProgramMay() {
    cpu_set_t allowed;
    if (sched_getaffinity(getpid(), sizeof allowed, &allowed) == 0) {
        pthread_setaffinity_np(pthread_self(), sizeof allowed, &allowed);
    }
}

}  // namespace

void Channel::countPacket(std::size_t bytes) {
    if (counts.packetsIn++ == 0) {
        counts.first = std::chrono::steady_clock::now();
    }
    counts.bytesIn += bytes;
}

void Decoder::run() {
    pthread_setname_np(pthread_self(), "mpp_decoder");
    runWhereTheProgramMay();
    const bool prepared = prepare();
    {
        const std::lock_guard<std::mutex> lock(channel_.doorbell->mutex);
        state_ = prepared ? State::working : State::failed;
        channel_.doorbell->bell.notify_all();
    }
    if (prepared) {
        work();
    }
}

bool Decoder::start() {
    // Signals are the program's: none of its handlers runs on this thread.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    struct Restore {
        const sigset_t* mask;
        ~Restore() { pthread_sigmask(SIG_SETMASK, mask, nullptr); }
    } const restore{&before};
    thread_ = std::thread([this] { run(); });
    std::unique_lock<std::mutex> lock(channel_.doorbell->mutex);
    channel_.doorbell->bell.wait(lock, [this] { return state_ != State::starting; });
    lock.unlock();
    if (state_ == State::failed) {
        thread_.join();
        return false;
    }
    return true;
}

void Decoder::join() {
    if (thread_.joinable()) {
        thread_.join();
    }
}

}  // namespace mpp
