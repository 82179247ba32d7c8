#pragma once

#include "cli/options.h"

#include <string>

namespace framehold {

/// Text for a command line that was refused: the option or argument and what it takes, or the
/// nearest name where one is unknown.
std::string describeUsageError(const Command& program, const CLI::ParseError& error);

}  // namespace framehold
