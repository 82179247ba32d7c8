#pragma once

#include "cli/options.h"

#include <string>

namespace framehold {

// Scripts that teach a shell the program's commands, options and the values they take.
std::string bashCompletions(const Command& program);
std::string zshCompletions(const Command& program);
std::string fishCompletions(const Command& program);

}  // namespace framehold
