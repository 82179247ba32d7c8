#pragma once

#include "cli/options.h"

#include <string>
#include <vector>

namespace framehold {

/// Text for a command line that was refused: the option or argument and what it takes, or the
/// nearest name where one is unknown.
std::string describeUsageError(const Command& program, const CLI::ParseError& error);

/// Text for a command line in which the parser would take an option's name for a value, a flag has
/// a value, or a word of several letters is not made of flags; empty for others. words: without the
/// program's name.
std::string findWrongWord(const Command& program, const std::vector<std::string>& words);

}  // namespace framehold
