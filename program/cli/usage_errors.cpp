#include "cli/usage_errors.h"

#include "cli/option_text.h"
#include "common/nearest_name.h"

#include <algorithm>

#include <fmt/format.h>

namespace framehold {

namespace {

std::string unknown(const std::string& word, const std::string& kind,
                    const std::vector<std::string>& names) {
    const std::string nearest = nearestName(word, names);
    return fmt::format("{}: there is no such {}{}", word, kind,
                       nearest.empty() ? "" : fmt::format("; did you mean {}?", nearest));
}

/// The first argument that nothing took.
std::string describeExtra(const Command& program, const Command& command) {
    std::string word = program.remaining(true).front();
    std::vector<std::string> names;
    if (&command == &program) {
        for (const Command* c : program.commands()) names.push_back(c->get_name());
        if (word.front() != '-') return unknown(word, "command", names);
        names.clear();
    }
    if (word.front() != '-') return fmt::format("{}: one argument too many", word);
    for (const OptionGroup& group : optionGroupsOf(command)) {
        for (const OptionText& option : group.options) names.push_back(option.longName);
    }
    return unknown(word.substr(0, word.find('=')), "option", names);
}

}  // namespace

std::string describeUsageError(const Command& program, const CLI::ParseError& error) {
    const auto& commands = program.commands();
    const auto parsed = std::find_if(commands.begin(), commands.end(),
                                     [](const Command* c) { return c->parsed(); });
    const Command& command = parsed == commands.end() ? program : **parsed;
    const bool isProgram = &command == &program;
    const bool isExtra = error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError) ||
                         (isProgram && !program.remaining(true).empty());
    const std::string what = isExtra ? describeExtra(program, command) : error.what();
    const std::string name =
        isProgram ? program.get_name() : program.get_name() + " " + command.get_name();
    return fmt::format("{}: {}\n`{} --help` tells more.\n", name, what, name);
}

}  // namespace framehold
