// The application: no command line, no configuration, no end.
#include "control/supervise/statuspoll.h"
#include "control/supervise/updatecontrol.h"

#include <signal.h>

namespace {

// A reader of our output that goes away, and a sound notification that comes late, are no reason to
// end. Threads inherit the mask.
void ignoreSignals() {
    signal(SIGPIPE, SIG_IGN);
    signal(SIGIO, SIG_IGN);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGIO);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
}

}  // namespace

int main(int /*argc*/, char** /*argv*/) {
    ignoreSignals();
    UpdateControl bookkeeping;
    // Destroyed at once: the destructor waits for the supervisor's thread, which never ends.
    { StatusPoll supervisor; }
    return 0;
}
