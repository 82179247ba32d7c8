#include "cli/option_text.h"

#include <cmath>
#include <sstream>

#include <fmt/format.h>

namespace framehold {

namespace {

/// The parts of "TYPE:VALIDATOR:VALIDATOR".
std::vector<std::string> typeParts(const CLI::Option& option) {
    std::vector<std::string> parts;
    std::istringstream in(option.get_type_name());
    for (std::string part; std::getline(in, part, ':');) parts.push_back(part);
    return parts;
}

/// "1 to 100" from "INT in [1 - 100]"; empty if it is something else, or a range that ends only
/// where numbers stop to make sense.
std::string rangeOf(const std::string& validator) {
    const size_t open = validator.find(" in [");
    if (open == std::string::npos || validator.back() != ']') return {};
    const std::string range = validator.substr(open + 5, validator.size() - open - 6);
    const size_t dash = range.find(" - ");
    if (dash == std::string::npos) return {};
    const std::string low = range.substr(0, dash);
    const std::string high = range.substr(dash + 3);
    const auto isOpen = [](const std::string& end) { return std::abs(std::stod(end)) >= 1e6; };
    if (isOpen(low)) return {};
    return isOpen(high) ? "at least " + low : low + " to " + high;
}

/// The members of "{width,height}"; empty if it is something else.
std::vector<std::string> choicesOf(const std::string& validator) {
    std::vector<std::string> choices;
    if (validator.size() < 2 || validator.front() != '{') return choices;
    std::istringstream in(validator.substr(1, validator.size() - 2));
    for (std::string choice; std::getline(in, choice, ',');) choices.push_back(choice);
    return choices;
}

std::string valueName(const std::string& type) {
    if (type == "INT" || type == "UINT" || type == "FLOAT") return "N";
    return type;
}

}  // namespace

OptionText describe(const CLI::Option& option) {
    OptionText text;
    if (!option.get_snames().empty()) text.shortName = "-" + option.get_snames().front();
    if (!option.get_lnames().empty()) text.longName = "--" + option.get_lnames().front();
    text.isPositional = option.get_positional();
    text.isRequired = option.get_required();
    text.isRepeated = option.get_expected_max() >= CLI::detail::expected_max_vector_size;
    text.description = option.get_description();
    if (option.get_type_size() == 0) return text;

    std::vector<std::string> hints;
    for (const std::string& part : typeParts(option)) {
        if (text.value.empty()) text.value = valueName(part);
        if (const std::string range = rangeOf(part); !range.empty()) hints.push_back(range);
        if (auto choices = choicesOf(part); !choices.empty()) text.choices = std::move(choices);
        const bool isPath =
            part == "FILE" || part == "DIR" || part == "PATH" || part.rfind("PATH(", 0) == 0;
        text.takesFile = text.takesFile || isPath;
        const bool isPlaceholder = isPath || part == "WxH";
        if (isPlaceholder && text.value == "TEXT") text.value = part.substr(0, part.find('('));
    }
    if (!text.choices.empty()) text.value = fmt::format("{}", fmt::join(text.choices, "|"));
    if (text.isPositional) text.value = option.get_name(true, false);
    const std::string given = option.get_default_str();
    if (!given.empty()) hints.push_back("default " + given);
    if (!hints.empty()) text.description += fmt::format(" ({})", fmt::join(hints, "; "));
    return text;
}

std::string OptionText::heading() const {
    if (isPositional) return value + (isRepeated ? "..." : "");
    std::string names = shortName;
    if (!shortName.empty() && !longName.empty()) names += ", ";
    names += longName;
    return value.empty() ? names : names + " " + value;
}

std::vector<OptionText> argumentsOf(const CLI::App& command) {
    std::vector<OptionText> arguments;
    for (const CLI::Option* option : command.get_options(
             [](const CLI::Option* o) { return !o->get_group().empty() && o->get_positional(); })) {
        arguments.push_back(describe(*option));
    }
    return arguments;
}

std::vector<OptionGroup> optionGroupsOf(const CLI::App& command) {
    std::vector<OptionGroup> groups;
    for (const std::string& name : command.get_groups()) {
        if (name.empty()) continue;
        OptionGroup group{name, {}};
        for (const CLI::Option* option : command.get_options([&](const CLI::Option* o) {
                 return o->get_group() == name && o->nonpositional();
             })) {
            group.options.push_back(describe(*option));
        }
        if (!group.options.empty()) groups.push_back(std::move(group));
    }
    return groups;
}

std::vector<const CLI::App*> commandsOf(const CLI::App& program) {
    return program.get_subcommands([](const CLI::App* command) {
        return !command->get_name().empty() && !command->get_group().empty();
    });
}

std::string usageOf(const CLI::App& command) {
    std::string usage = command.get_name();
    for (const CLI::App* parent = command.get_parent(); parent != nullptr;
         parent = parent->get_parent()) {
        usage = parent->get_name() + " " + usage;
    }
    if (!commandsOf(command).empty()) return usage + " COMMAND [OPTIONS]";
    usage += " [OPTIONS]";
    for (const OptionText& argument : argumentsOf(command)) {
        const std::string heading = argument.heading();
        usage += argument.isRequired ? " " + heading : " [" + heading + "]";
    }
    return usage;
}

std::vector<std::string> wrapped(const std::string& text, size_t width) {
    std::vector<std::string> lines = {""};
    std::istringstream in(text);
    for (std::string word; in >> word;) {
        std::string& line = lines.back();
        if (line.empty()) {
            line = word;
        } else if (line.size() + 1 + word.size() <= width) {
            line += " " + word;
        } else {
            lines.push_back(word);
        }
    }
    return lines;
}

}  // namespace framehold
