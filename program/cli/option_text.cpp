#include "cli/option_text.h"

#include <cmath>

#include <fmt/format.h>

namespace framehold {

namespace {

/// "1 to 100" or "at least 1". Ends of a million and more exclude nothing that anyone would give:
/// they are left out.
std::string textOf(const Range& range) {
    const auto isOpen = [](double end) { return std::abs(end) >= 1e6; };
    if (isOpen(range.low)) return {};
    if (isOpen(range.high)) return fmt::format("at least {}", range.low);
    return fmt::format("{} to {}", range.low, range.high);
}

}  // namespace

OptionText describe(const Command& command, const CLI::Option& option) {
    OptionText text;
    if (!option.get_snames().empty()) text.shortName = "-" + option.get_snames().front();
    if (!option.get_lnames().empty()) text.longName = "--" + option.get_lnames().front();
    text.isPositional = option.get_positional();
    text.isRequired = option.get_required();
    text.isRepeated = option.get_expected_max() >= CLI::detail::expected_max_vector_size;
    text.description = option.get_description();
    const std::optional<OptionValue> value = command.valueOf(option);
    if (!value) return text;

    text.choices = value->choices;
    text.takesFile = value->isPath;
    text.value = text.isPositional ? option.get_name(true, false) : value->placeholder;
    std::vector<std::string> hints;
    const std::string range = value->range ? textOf(*value->range) : "";
    if (!range.empty()) hints.push_back(range);
    if (!value->choices.empty()) hints.push_back(listOf(value->choices));
    const std::string given = option.get_default_str();
    if (!given.empty()) hints.push_back("default " + given);
    if (!hints.empty()) text.description += fmt::format(" ({})", fmt::join(hints, "; "));
    return text;
}

std::string OptionText::heading() const {
    const std::string values = value + (isRepeated ? "..." : "");
    if (isPositional) return values;
    std::string names = shortName;
    if (!shortName.empty() && !longName.empty()) names += ", ";
    names += longName;
    if (value.empty()) return names;
    return names + (longName.empty() ? " " : "=") + values;
}

std::vector<OptionText> argumentsOf(const Command& command) {
    std::vector<OptionText> arguments;
    for (const CLI::Option* option : command.get_options(
             [](const CLI::Option* o) { return !o->get_group().empty() && o->get_positional(); })) {
        arguments.push_back(describe(command, *option));
    }
    return arguments;
}

std::vector<OptionGroup> optionGroupsOf(const Command& command) {
    std::vector<OptionGroup> groups;
    for (const std::string& name : command.get_groups()) {
        if (name.empty()) continue;
        OptionGroup group{name, {}};
        for (const CLI::Option* option : command.get_options([&](const CLI::Option* o) {
                 return o->get_group() == name && o->nonpositional();
             })) {
            group.options.push_back(describe(command, *option));
        }
        if (!group.options.empty()) groups.push_back(std::move(group));
    }
    return groups;
}

std::string usageOf(const Command& command) {
    std::string usage = command.get_name();
    for (const CLI::App* parent = command.get_parent(); parent != nullptr;
         parent = parent->get_parent()) {
        usage = parent->get_name() + " " + usage;
    }
    if (!command.commands().empty()) return usage + " COMMAND [OPTIONS]";
    usage += " [OPTIONS]";
    for (const OptionText& argument : argumentsOf(command)) {
        const std::string heading = argument.heading();
        usage += argument.isRequired ? " " + heading : " [" + heading + "]";
    }
    return usage;
}

}  // namespace framehold
