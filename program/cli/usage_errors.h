#pragma once

#include "cli/options.h"

#include <string>

namespace framehold {

/// What is wrong with a command line that was refused, with the nearest name where one was not
/// known.
std::string describeUsageError(const Command& program, const CLI::ParseError& error);

}  // namespace framehold
