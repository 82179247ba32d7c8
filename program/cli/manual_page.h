#pragma once

#include <string>

#include <CLI/App.hpp>

namespace framehold {

/// The program's manual page, all commands in it, as troff source with the man macros.
std::string manualPage(const CLI::App& program, const std::string& version);

}  // namespace framehold
