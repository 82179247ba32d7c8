#pragma once

#include "cli/options.h"

#include <string>
#include <vector>

namespace framehold {

/// Options of groups whose name starts so are left out of `--help`; `--help-all` and the manual
/// pages show them.
constexpr const char* kMorePrefix = "More ";

/// Description of an option or argument, from which help texts and shell completions are made.
struct OptionText {
    std::string shortName;             // "-o", or empty
    std::string longName;              // "--output", or empty
    std::string value;                 // "FILE"; empty for a flag
    std::vector<std::string> choices;  // the only values, if not empty
    std::string description;           // with range and default
    bool takesFile = false;
    bool isPositional = false;
    bool isRequired = false;
    bool isRepeated = false;

    /// "-o, --output=FILE", or the name of an argument.
    std::string heading() const;
};

OptionText describe(const Command& command, const CLI::Option& option);

struct OptionGroup {
    std::string name;
    std::vector<OptionText> options;

    bool isMore() const { return name.rfind(kMorePrefix, 0) == 0; }
};

/// The positional arguments of a command, in their order.
std::vector<OptionText> argumentsOf(const Command& command);

/// The options of a command by group, in the order in which they were added.
std::vector<OptionGroup> optionGroupsOf(const Command& command);

/// "framehold stabilize [OPTIONS] VIDEO..."
std::string usageOf(const Command& command);

}  // namespace framehold
