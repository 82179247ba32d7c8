#pragma once

#include <string>

#include <CLI/App.hpp>

namespace framehold {

// Scripts that teach a shell the program's commands, options and the values they take.
std::string bashCompletions(const CLI::App& program);
std::string zshCompletions(const CLI::App& program);
std::string fishCompletions(const CLI::App& program);

}  // namespace framehold
