#pragma once

#include <string>

#include <CLI/App.hpp>

namespace framehold {

/// What is wrong with a command line that was refused, with the nearest name where one was not
/// known.
std::string describeUsageError(const CLI::App& program, const CLI::ParseError& error);

}  // namespace framehold
