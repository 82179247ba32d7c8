#pragma once

#include "cli/options.h"
#include "common/output_file.h"

#include <string>
#include <utility>
#include <vector>

namespace framehold {

/// Adds --preset-file, which withPresets acts on, and --save-settings. save: file to write.
void addSettingsOptions(Command& command, std::string& save);

/// Words of a command line, and before them the options of its --preset-file, but for those that the
/// line has itself or that it excludes. words: without the program's name.
/// Throws FileError with the option for a name that is not known or a value that it does not take.
std::vector<std::string> withPresets(const Command& program, const std::vector<std::string>& words);

/// Writes the options that the command was given, for --preset-file. more: long names of options
/// that were not given, with the values to write for them. Throws std::runtime_error.
void saveSettings(const Command& command, const OutputName& file,
                  const std::vector<std::pair<std::string, std::string>>& more = {});

}  // namespace framehold
