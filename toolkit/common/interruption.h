#pragma once

#include <stdexcept>
#include <string>

namespace framehold {

/// Thrown where work stops because the user asked for it.
class Interrupted : public std::runtime_error {
public:
    explicit Interrupted(const std::string& what = "interrupted; nothing was written")
        : std::runtime_error(what) {}
};

/// From now on SIGINT, SIGTERM and SIGHUP do not end the program but make `throwIfInterrupted`
/// throw, in every thread. Calls that wait for input return with EINTR.
void catchInterruptions();

bool isInterrupted();

void throwIfInterrupted();

}  // namespace framehold
