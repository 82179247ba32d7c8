#include "cli/completions.h"
#include "cli/manual_page.h"
#include "commands/commands.h"

#include <map>
#include <memory>

#include <fmt/format.h>

#include <CLI/CLI.hpp>

namespace framehold {

void addDocumentationCommands(CLI::App& app) {
    CLI::App* manual = app.add_subcommand("manual", "Print the manual page");
    manual->footer("Example:\n  framehold manual | man -l -");
    manual->callback([&app] { fmt::print("{}", manualPage(app, app.version())); });

    auto shell = std::make_shared<std::string>();
    CLI::App* completion = app.add_subcommand("completion", "Print completions for a shell");
    completion->footer(
        "Examples:\n"
        "  framehold completion bash > /etc/bash_completion.d/framehold\n"
        "  framehold completion fish > ~/.config/fish/completions/framehold.fish");
    using Generator = std::string (*)(const CLI::App&);
    static const std::map<std::string, Generator> kGenerators = {
        {"bash", bashCompletions}, {"fish", fishCompletions}, {"zsh", zshCompletions}};
    completion->add_option("SHELL", *shell, "bash, fish or zsh")
        ->required()
        ->check(CLI::IsMember(kGenerators));
    completion->callback([&app, shell] { fmt::print("{}", kGenerators.at(*shell)(app)); });
}

}  // namespace framehold
