#include "cli/completion.h"
#include "cli/options.h"
#include "commands/commands.h"

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace framehold {

void addCompletionCommand(Command& program) {
    auto shell = std::make_shared<std::string>();
    Command& completion = program.addCommand("completion", "Print completions for a shell");
    completion.setExamples(
        {"framehold completion bash > /etc/bash_completion.d/framehold",
         "framehold completion fish > ~/.config/fish/completions/framehold.fish"});
    using Generator = std::string (*)(const Command&);
    static const std::map<std::string, Generator> kGenerators = {
        {"bash", bashCompletions}, {"fish", fishCompletions}, {"zsh", zshCompletions}};
    std::vector<std::string> shells;
    for (const auto& generator : kGenerators) shells.push_back(generator.first);
    completion.addChoice("SHELL", *shell, "Shell to complete for", shells)->required();
    completion.callback(
        [&program, shell] { std::fputs(kGenerators.at(*shell)(program).c_str(), stdout); });
}

}  // namespace framehold
