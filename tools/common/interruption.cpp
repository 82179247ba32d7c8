#include "common/interruption.h"

#include <csignal>

namespace framehold {

namespace {

volatile std::sig_atomic_t interrupted = 0;

extern "C" void onInterruption(int) { interrupted = 1; }

}  // namespace

void catchInterruptions() {
    std::signal(SIGINT, onInterruption);
    std::signal(SIGTERM, onInterruption);
}

void throwIfInterrupted() {
    if (interrupted != 0) throw Interrupted();
}

}  // namespace framehold
