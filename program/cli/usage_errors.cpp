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

std::string describeUnknownOption(const Command& command, const std::string& word) {
    std::vector<std::string> names;
    for (const OptionGroup& group : optionGroupsOf(command)) {
        for (const OptionText& option : group.options) names.push_back(option.longName);
    }
    return unknown(word.substr(0, word.find('=')), "option", names);
}

std::string describeUnknownCommand(const Command& program, const std::string& word) {
    std::vector<std::string> names;
    for (const Command* command : program.commands()) names.push_back(command->get_name());
    return unknown(word, "command", names);
}

/// `error` is about an option that was given too many values or too few; its text starts with the
/// option's name, and goes on in words of the parser.
std::string describeMismatch(const Command& command, const CLI::ParseError& error) {
    const std::string text = error.what();
    const std::string name = text.substr(0, text.find(':'));
    const CLI::Option* option = command.get_option_no_throw(name);
    if (option == nullptr) return text;
    const int given = static_cast<int>(option->count());
    const int taken =
        std::clamp(given, option->get_items_expected_min(), option->get_items_expected_max());
    if (given == 0 || given == taken) return fmt::format("{}: a value is missing", name);
    return fmt::format("{}: takes {} value{}, not {}", name, taken, taken == 1 ? "" : "s", given);
}

std::string describe(const Command& program, const Command& command, const CLI::ParseError& error) {
    const auto code = static_cast<CLI::ExitCodes>(error.get_exit_code());
    const std::vector<std::string> extra = program.remaining(true);
    const auto isOption = [](const std::string& word) { return word.size() > 1 && word[0] == '-'; };
    // Before other errors: the value after an unknown option is taken for an argument.
    const auto option = std::find_if(extra.begin(), extra.end(), isOption);
    if (option != extra.end()) return describeUnknownOption(command, *option);
    if (&command == &program && !extra.empty()) {
        return describeUnknownCommand(program, extra.front());
    }
    if (&command == &program && code == CLI::ExitCodes::RequiredError)
        return "a command is missing";
    if (code == CLI::ExitCodes::ExtrasError) {
        return fmt::format("{}: one argument too many", extra.front());
    }
    if (code == CLI::ExitCodes::ArgumentMismatch) return describeMismatch(command, error);
    return error.what();
}

}  // namespace

std::string describeUsageError(const Command& program, const CLI::ParseError& error) {
    const auto& commands = program.commands();
    const auto parsed = std::find_if(commands.begin(), commands.end(),
                                     [](const Command* c) { return c->parsed(); });
    const Command& command = parsed == commands.end() ? program : **parsed;
    const std::string name =
        &command == &program ? program.get_name() : program.get_name() + " " + command.get_name();
    return fmt::format("{0}: {1}\nTry: {0} --help\n", name, describe(program, command, error));
}

}  // namespace framehold
