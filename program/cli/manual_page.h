#pragma once

#include "cli/options.h"

#include <string>

namespace framehold {

/// The program's manual page, all commands in it, as troff source with the man macros.
std::string manualPage(const Command& program, const std::string& version);

}  // namespace framehold
