#pragma once

#include <stdexcept>

namespace framehold {

// Exit codes of the program, beside 0.
constexpr int kExitFailed = 1;
constexpr int kExitWrongUsage = 2;
constexpr int kExitWithLosses = 3;
constexpr int kExitInterrupted = 130;

/// Thrown where everything was done that could be, but results lack something or are worse than they
/// should be.
class DoneWithLosses : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace framehold
