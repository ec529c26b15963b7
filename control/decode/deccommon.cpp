#include "control/decode/deccommon.h"

#include "control/task/logline.h"
#include "control/task/msgvideo.h"

#include <memory>

namespace {

constexpr int decoderCpus = 0x30;     // CPUs 4 and 5
constexpr int closingTimeout_ms = 5;  // so that a worker that waits ends soon

}  // namespace

int DecCommon::runDecoder(const char* className) {
    gettid();
    setThreadName(className);
    setCpuCore(decoderCpus, pthread_self());
    while (running) {
        void* message = nullptr;
        if (getq(&message, waitTimeout_ms) == 1) {
            const std::unique_ptr<msgVideo> frame(static_cast<msgVideo*>(message));
            decoder_process(frame.get(), nullptr);
        } else {
            logOut(className, " getq timeout");
        }
    }
    logOut(className, "svc", " normal stop!");
    return 0;
}

int DecCommon::stopDecoder(const char* closeText) {
    running = 0;
    waitTimeout_ms = closingTimeout_ms;
    wait();
    logOut(closeText, getqSize());
    void* message = nullptr;
    while (getq(&message, waitTimeout_ms) == 1) {
        delete static_cast<msgVideo*>(message);
    }
    return 0;
}
