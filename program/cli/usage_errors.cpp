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

const CLI::Option* optionOf(const Command& command, const std::string& word) {
    if (word.size() < 2 || word[0] != '-') return nullptr;
    return command.get_option_no_throw(word.substr(0, word.find('=')));
}

/// Looks at the words of a command's line; where an option takes its value from the next word, that
/// one is left out.
class WordCheck {
public:
    WordCheck(const Command& command, const std::vector<std::string>& words)
        : command_(command), words_(words) {}

    /// Text about the first wrong word; empty if there is none.
    std::string error() {
        for (at_ = 1; at_ < words_.size() && words_[at_] != "--"; ++at_) {
            const std::string& word = words_[at_];
            const bool isShort = word.size() > 1 && word[0] == '-' && word[1] != '-';
            std::string error = isShort ? errorOfLetters(word) : errorOfName(word);
            if (!error.empty()) return error;
        }
        return {};
    }

private:
    std::string errorOfName(const std::string& word) {
        const CLI::Option* option = optionOf(command_, word);
        if (option == nullptr) return {};
        const size_t end = word.find('=');
        const std::string name = word.substr(0, end);
        if (command_.valueOf(*option)) return end == std::string::npos ? errorOfValue(name) : "";
        return end == std::string::npos ? "" : name + ": takes no value";
    }

    /// Flags in one word; the last letter may be that of an option whose value follows.
    std::string errorOfLetters(const std::string& word) {
        for (size_t i = 1; i < word.size(); ++i) {
            const std::string name = {'-', word[i]};
            const CLI::Option* option = optionOf(command_, name);
            if (option == nullptr) return i > 1 ? describeUnknownOption(command_, word) : "";
            if (command_.valueOf(*option)) return i + 1 == word.size() ? errorOfValue(name) : "";
        }
        return {};
    }

    std::string errorOfValue(const std::string& name) {
        ++at_;
        if (at_ >= words_.size() || optionOf(command_, words_[at_]) == nullptr) return {};
        return fmt::format("{}: a value is missing before {}", name, words_[at_]);
    }

    const Command& command_;
    const std::vector<std::string>& words_;
    size_t at_ = 0;
};

std::string formatted(const std::string& name, const std::string& error) {
    return fmt::format("{0}: {1}\nTry: {0} --help\n", name, error);
}

std::string describe(const Command& program, const Command& command, const CLI::ParseError& error) {
    const auto code = static_cast<CLI::ExitCodes>(error.get_exit_code());
    std::vector<std::string> extra = program.remaining(true);
    extra.erase(std::remove(extra.begin(), extra.end(), "--"), extra.end());
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
    return formatted(name, describe(program, command, error));
}

std::string findWrongWord(const Command& program, const std::vector<std::string>& words) {
    if (words.empty()) return {};
    const auto& commands = program.commands();
    const auto command = std::find_if(commands.begin(), commands.end(),
                                      [&](const Command* c) { return c->get_name() == words[0]; });
    if (command == commands.end()) return {};
    const std::string error = WordCheck(**command, words).error();
    return error.empty() ? "" : formatted(program.get_name() + " " + words[0], error);
}

}  // namespace framehold
