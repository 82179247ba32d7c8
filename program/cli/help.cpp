#include "cli/help.h"

#include "cli/exit_codes.h"
#include "cli/option_text.h"

#include <algorithm>
#include <sstream>
#include <vector>

#include <fmt/format.h>

namespace framehold {

namespace {

constexpr size_t kWidth = 80;
constexpr size_t kWidestHeading = 30;

/// Breaks a text at blanks into lines of at most `width` characters; longer words stay whole.
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

/// Rows of a heading and a text, the texts below each other.
class Rows {
public:
    explicit Rows(size_t headingWidth) : column_(headingWidth + 4) {}

    void title(const std::string& text) { out_ += fmt::format("\n{}:\n", text); }

    void row(const std::string& heading, const std::string& text) {
        out_ += "  " + heading;
        size_t used = heading.size() + 2;
        for (const std::string& line : wrapped(text, kWidth - column_)) {
            if (used + 2 > column_ && used != 0) {
                out_ += '\n';
                used = 0;
            }
            out_ += std::string(column_ - used, ' ') + line + '\n';
            used = 0;
        }
    }

    std::string take() { return std::move(out_); }

private:
    size_t column_;
    std::string out_;
};

/// Options that short help leaves out, because whoever reads it has found them.
bool isHelpOption(const OptionText& option) { return option.longName.rfind("--help", 0) == 0; }

/// The sections to show: what is below each title.
std::vector<OptionGroup> sectionsOf(const Command& command, bool withMore) {
    std::vector<OptionGroup> sections;
    if (auto arguments = argumentsOf(command); !arguments.empty()) {
        sections.push_back({"Arguments", std::move(arguments)});
    }
    for (OptionGroup& group : optionGroupsOf(command)) {
        if (group.isMore() && !withMore) continue;
        auto& options = group.options;
        if (!withMore) {
            options.erase(std::remove_if(options.begin(), options.end(), isHelpOption),
                          options.end());
        }
        if (!options.empty()) sections.push_back(std::move(group));
    }
    return sections;
}

std::string commandList(const Command& program) {
    size_t widest = 0;
    for (const Command* command : program.commands()) {
        widest = std::max(widest, command->get_name().size());
    }
    Rows rows(widest);
    rows.title("Commands");
    for (const Command* command : program.commands()) {
        rows.row(command->get_name(), command->get_description());
    }
    return rows.take();
}

std::string optionList(const Command& command, bool withMore) {
    const std::vector<OptionGroup> sections = sectionsOf(command, withMore);
    size_t widest = 0;
    for (const OptionGroup& section : sections) {
        for (const OptionText& option : section.options) {
            const size_t width = option.heading().size();
            if (width <= kWidestHeading) widest = std::max(widest, width);
        }
    }
    Rows rows(widest);
    for (const OptionGroup& section : sections) {
        rows.title(section.name);
        for (const OptionText& option : section.options) {
            rows.row(option.heading(), option.description);
        }
    }
    return rows.take();
}

bool hasMore(const Command& command) {
    const auto groups = optionGroupsOf(command);
    return std::any_of(groups.begin(), groups.end(),
                       [](const OptionGroup& group) { return group.isMore(); });
}

std::string exitCodeList() {
    const struct {
        int code;
        const char* meaning;
    } kCodes[] = {{0, "done"},
                  {kExitFailed, "failed"},
                  {kExitWrongUsage, "wrong usage"},
                  {kExitWithLosses, "done, with losses: warnings say which"},
                  {kExitInterrupted, "interrupted"}};
    Rows rows(3);
    rows.title("Exit status");
    for (const auto& c : kCodes) rows.row(std::to_string(c.code), c.meaning);
    return rows.take();
}

std::string notesOf(const Command& command) {
    if (command.notes().empty()) return {};
    return fmt::format("\n{}\n", fmt::join(wrapped(command.notes(), kWidth), "\n"));
}

std::string examplesOf(const Command& command) {
    if (command.examples().empty()) return {};
    return fmt::format("\nExamples:\n  $ {}\n", fmt::join(command.examples(), "\n  $ "));
}

}  // namespace

std::string HelpFormatter::make_help(const CLI::App* app, std::string /*name*/,
                                     CLI::AppFormatMode mode) const {
    const auto& command = dynamic_cast<const Command&>(*app);
    const bool withMore = mode == CLI::AppFormatMode::All;
    std::string help = fmt::format("Usage: {}\n{}.\n", usageOf(command), command.get_description());
    help += notesOf(command);
    if (!command.commands().empty()) help += commandList(command);
    help += optionList(command, withMore);
    if (hasMore(command) && !withMore) help += "\nMore options: --help-all\n";
    if (withMore || !command.commands().empty()) help += exitCodeList();
    help += examplesOf(command);
    return help;
}

}  // namespace framehold
