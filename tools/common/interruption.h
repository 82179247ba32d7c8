#pragma once

#include <stdexcept>

namespace framehold {

/// Thrown where work stops because the user asked for it.
class Interrupted : public std::runtime_error {
public:
    Interrupted() : std::runtime_error("interrupted") {}
};

/// From now on SIGINT and SIGTERM do not end the program but make `throwIfInterrupted` throw.
void catchInterruptions();

void throwIfInterrupted();

}  // namespace framehold
