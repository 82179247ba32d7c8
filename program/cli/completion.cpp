#include "cli/completion.h"

#include "cli/option_text.h"

#include <fmt/format.h>

namespace framehold {

namespace {

std::vector<OptionText> optionsOf(const Command& command) {
    std::vector<OptionText> options;
    for (const OptionGroup& group : optionGroupsOf(command)) {
        options.insert(options.end(), group.options.begin(), group.options.end());
    }
    return options;
}

std::vector<std::string> namesOf(const OptionText& option) {
    std::vector<std::string> names;
    for (const std::string& name : {option.shortName, option.longName}) {
        if (!name.empty()) names.push_back(name);
    }
    return names;
}

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    for (size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + with.size())) {
        text.replace(at, what.size(), with);
    }
    return text;
}

/// Inside single quotes of a POSIX-like shell.
std::string shellQuoted(const std::string& text) {
    return "'" + replaced(text, "'", "'\\''") + "'";
}

/// The only values of a command's first argument, such as the shells of `completion`.
std::vector<std::string> argumentChoices(const Command& command) {
    const auto arguments = argumentsOf(command);
    return arguments.empty() ? std::vector<std::string>() : arguments.front().choices;
}

/// One `--name=[text]:value:action` of zsh's _arguments.
std::string zshArgument(const OptionText& option, const std::string& name) {
    std::string text = option.description;
    for (const char* special : {"[", "]", ":"})
        text = replaced(text, special, std::string("\\") + special);
    const bool isLong = name.rfind("--", 0) == 0;
    std::string argument =
        fmt::format("{}{}[{}]", name, isLong && !option.value.empty() ? "=" : "", text);
    if (!option.value.empty()) {
        const std::string action = option.choices.empty()
                                       ? (option.takesFile ? "_files" : " ")
                                       : fmt::format("({})", fmt::join(option.choices, " "));
        argument += ":" + replaced(option.value, ":", "\\:") + ":" + action;
    }
    return shellQuoted(argument);
}

}  // namespace

std::string bashCompletions(const Command& program) {
    const std::string name = program.get_name();
    std::vector<std::string> commands;
    std::string values;
    std::string options;
    for (const Command* command : program.commands()) {
        commands.push_back(command->get_name());
        std::vector<std::string> names;
        for (const OptionText& option : optionsOf(*command)) {
            const auto own = namesOf(option);
            names.insert(names.end(), own.begin(), own.end());
            if (option.value.empty()) continue;
            std::vector<std::string> patterns;
            for (const std::string& n : own) patterns.push_back(command->get_name() + ":" + n);
            values +=
                fmt::format("        {}) {} ;;\n", fmt::join(patterns, "|"),
                            option.choices.empty()
                                ? std::string("return")
                                : fmt::format("words=\"{}\"", fmt::join(option.choices, " ")));
        }
        options += fmt::format("        {}) options=\"{}\"; words=\"{}\" ;;\n", command->get_name(),
                               fmt::join(names, " "), fmt::join(argumentChoices(*command), " "));
    }
    // bash takes --name=value as three words. What has no words of its own is left to the shell's
    // completion of file names.
    return fmt::format(R"(# bash completion for {0}
_{0}() {{
    local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD - 1]}}
    local command=${{COMP_WORDS[1]}} options= words=
    COMPREPLY=()
    if [ "$current" = = ]; then
        current=
    elif [ "$previous" = = ]; then
        previous=${{COMP_WORDS[COMP_CWORD - 2]}}
    fi
    if [ "$COMP_CWORD" -eq 1 ]; then
        COMPREPLY=($(compgen -W "{1} --help --version" -- "$current"))
        return
    fi
    case $command in
{2}    esac
    case $command:$previous in
{3}    esac
    [[ $current == -* ]] && words=$options
    COMPREPLY=($(compgen -W "$words" -- "$current"))
}}
complete -o bashdefault -o default -F _{0} {0}
)",
                       name, fmt::join(commands, " "), options, values);
}

std::string zshCompletions(const Command& program) {
    const std::string name = program.get_name();
    std::string commands;
    std::string cases;
    for (const Command* command : program.commands()) {
        commands += fmt::format(
            "        {}\n", shellQuoted(command->get_name() + ":" + command->get_description()));
        cases += fmt::format("        {})\n            _arguments \\\n", command->get_name());
        for (const OptionText& option : optionsOf(*command)) {
            for (const std::string& n : namesOf(option)) {
                cases += fmt::format("                {} \\\n", zshArgument(option, n));
            }
        }
        const auto choices = argumentChoices(*command);
        cases += fmt::format(
            "                '*:argument:{}'\n            ;;\n",
            choices.empty() ? std::string("_files") : fmt::format("({})", fmt::join(choices, " ")));
    }
    return fmt::format(R"(#compdef {0}
_{0}() {{
    local -a commands
    commands=(
{1}    )
    if (( CURRENT == 2 )); then
        _describe command commands
        return
    fi
    local command=$words[2]
    shift words
    (( CURRENT-- ))
    case $command in
{2}    esac
}}
_{0} "$@"
)",
                       name, commands, cases);
}

std::string fishCompletions(const Command& program) {
    const std::string name = program.get_name();
    std::string out = fmt::format("# fish completion for {}\n", name);
    for (const Command* command : program.commands()) {
        out += fmt::format("complete -c {} -n __fish_use_subcommand -f -a {} -d {}\n", name,
                           command->get_name(), shellQuoted(command->get_description()));
        const std::string when =
            fmt::format("-n '__fish_seen_subcommand_from {}'", command->get_name());
        const auto choices = argumentChoices(*command);
        if (!choices.empty()) {
            out +=
                fmt::format("complete -c {} {} -f -a '{}'\n", name, when, fmt::join(choices, " "));
        }
        for (const OptionText& option : optionsOf(*command)) {
            std::string line = fmt::format("complete -c {} {}", name, when);
            if (!option.shortName.empty()) line += " -s " + option.shortName.substr(1);
            if (!option.longName.empty()) line += " -l " + option.longName.substr(2);
            if (!option.value.empty()) line += option.takesFile ? " -r -F" : " -x";
            if (!option.choices.empty()) {
                line += fmt::format(" -a '{}'", fmt::join(option.choices, " "));
            }
            out += line + " -d " + shellQuoted(option.description) + "\n";
        }
    }
    return out;
}

}  // namespace framehold
