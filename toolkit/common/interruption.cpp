#include "common/interruption.h"

#include <atomic>
#include <csignal>

namespace framehold {

namespace {

std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "signal handlers may not lock");

extern "C" void onInterruption(int) { interrupted = true; }

}  // namespace

void catchInterruptions() {
    struct sigaction action {};
    action.sa_handler = onInterruption;
    sigemptyset(&action.sa_mask);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
    for (const int signal : {SIGPIPE, SIGXFSZ}) std::signal(signal, SIG_IGN);
}

bool isInterrupted() { return interrupted; }

void throwIfInterrupted() {
    if (isInterrupted()) throw Interrupted();
}

}  // namespace framehold
