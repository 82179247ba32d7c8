#include "cli/options.h"

#include <memory>
#include <sstream>

namespace framehold {

Command::Command(const std::string& description, const std::string& name)
    : CLI::App(description, name) {}

Command::Command(const std::string& description, const std::string& name, Command* parent)
    : CLI::App(description, name, parent) {}

Command& Command::addCommand(const std::string& name, const std::string& description) {
    // The constructor is private: std::make_shared cannot call it.
    const std::shared_ptr<Command> command(new Command(description, name, this));
    add_subcommand(command);
    commands_.push_back(command.get());
    return *command;
}

std::optional<OptionValue> Command::valueOf(const CLI::Option& option) const {
    const auto found = values_.find(&option);
    if (found == values_.end()) return std::nullopt;
    return found->second;
}

CLI::Option* Command::addVector(const std::string& names, std::vector<double>& value,
                                const std::string& description) {
    return addValue(names, value, description, {"X,Y,Z", {}, {}, false})
        ->delimiter(',')
        ->expected(3);
}

CLI::Option* Command::addChoice(const std::string& names, std::string& value,
                                const std::string& description,
                                const std::vector<std::string>& choices) {
    return addValue(names, value, description, {"NAME", {}, choices, false})
        ->check(CLI::IsMember(choices));
}

CLI::Validator Command::pictureSizeCheck() {
    return CLI::Validator(
        [](std::string& text) {
            constexpr int kLargest = 16384;
            std::istringstream in(text);
            PictureSize size;
            const auto fits = [](int v) { return v >= 2 && v <= kLargest && v % 2 == 0; };
            const bool ok = in >> size && in.eof() && fits(size.width) && fits(size.height);
            return ok ? std::string()
                      : "'" + text + "' is not WIDTHxHEIGHT, both even and from 2 to 16384";
        },
        "");
}

}  // namespace framehold
