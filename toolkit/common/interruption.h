#pragma once

#include <stdexcept>
#include <string>

namespace framehold {

/// Thrown where work ends early because the user interrupted the program.
class Interrupted : public std::runtime_error {
public:
    explicit Interrupted(const std::string& what = "interrupted; nothing was written")
        : std::runtime_error(what) {}
};

/// Makes SIGINT, SIGTERM and SIGHUP set a flag in place of ending the program: `isInterrupted` is
/// true from then on, in every thread. Calls that wait for input return with EINTR. Makes writing
/// to a closed pipe, and past the largest size of a file, an error in place of a signal.
void catchInterruptions();

bool isInterrupted();

/// Throws Interrupted if `isInterrupted`.
void throwIfInterrupted();

}  // namespace framehold
