#include "cli/manual_page.h"

#include "cli/option_text.h"

#include <algorithm>

#include <fmt/format.h>

namespace framehold {

namespace {

/// Text that troff prints as it stands.
std::string escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '\\') {
            out += "\\e";
        } else if (c == '-') {
            out += "\\-";
        } else {
            if ((c == '.' || c == '\'') && (out.empty() || out.back() == '\n')) out += "\\&";
            out += c;
        }
    }
    return out;
}

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

std::string entry(const OptionText& option) {
    return fmt::format(".TP\n\\fB{}\\fR\n{}.\n", escaped(option.heading()),
                       escaped(option.description));
}

std::string commandSection(const Command& command) {
    std::string out = fmt::format(".SH {}\n{}.\n.PP\n.B {}\n", upper(command.get_name()),
                                  escaped(command.get_description()), escaped(usageOf(command)));
    for (const OptionText& argument : argumentsOf(command)) out += entry(argument);
    for (const OptionGroup& group : optionGroupsOf(command)) {
        out += fmt::format(".SS {}\n", escaped(group.name));
        for (const OptionText& option : group.options) out += entry(option);
    }
    if (!command.notes().empty()) out += ".SS Notes\n" + escaped(command.notes()) + "\n";
    if (!command.examples().empty()) out += ".SS Examples\n";
    for (const std::string& example : command.examples()) out += escaped(example) + "\n.br\n";
    return out;
}

}  // namespace

std::string manualPage(const Command& program, const std::string& version) {
    const std::string name = program.get_name();
    std::string out =
        fmt::format(".TH {} 1 \"\" \"{}\" \"User Commands\"\n", upper(name), escaped(version));
    out += fmt::format(".SH NAME\n{} \\- {}\n", name, escaped(program.get_description()));
    out += ".SH SYNOPSIS\n";
    for (const Command* command : program.commands()) {
        out += fmt::format(".B {}\n.br\n", escaped(usageOf(*command)));
    }
    out += ".SH DESCRIPTION\n" + escaped(program.notes()) + "\n";
    out += ".SH OPTIONS\n";
    for (const OptionGroup& group : optionGroupsOf(program)) {
        for (const OptionText& option : group.options) out += entry(option);
    }
    for (const Command* command : program.commands()) out += commandSection(*command);
    return out;
}

}  // namespace framehold
