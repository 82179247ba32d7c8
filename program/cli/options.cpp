#include "cli/options.h"

#include "common/image_sequence.h"
#include "common/text_fields.h"
#include "media/libav.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <sstream>

#include <fmt/format.h>

namespace framehold {

std::string listOf(const std::vector<std::string>& choices) {
    return fmt::format("{} or {}", fmt::join(choices.begin(), choices.end() - 1, ", "),
                       choices.back());
}

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
    const CLI::Validator isNumber(
        [](std::string& text) {
            double number = 0.0;
            const bool fits = CLI::detail::lexical_cast(text, number) && std::isfinite(number);
            return fits ? "" : fmt::format("'{}' is not a number", text);
        },
        "");
    return addValue(names, value, description, {"X,Y,Z", {}, {}, false})
        ->delimiter(',')
        ->expected(3)
        ->check(isNumber);
}

CLI::Option* Command::addKeyValues(const std::string& names, std::vector<std::string>& values,
                                   const std::string& description) {
    const CLI::Validator isPair(
        [](std::string& text) {
            const size_t equals = text.find('=');
            const bool fits = equals != std::string::npos && equals > 0;
            return fits ? "" : fmt::format("'{}' is not KEY=VALUE", text);
        },
        "");
    return addValue(names, values, description, {"KEY=VALUE", {}, {}, false})
        ->allow_extra_args(false)
        ->check(isPair);
}

CLI::Option* Command::addChoice(const std::string& names, std::string& value,
                                const std::string& description,
                                const std::vector<std::string>& choices) {
    return addValue(names, value, description, {"NAME", {}, choices, false})
        ->check(CLI::Validator(
            [choices](std::string& text) {
                const bool fits = std::count(choices.begin(), choices.end(), text) > 0;
                return fits ? "" : fmt::format("'{}' is not {}", text, listOf(choices));
            },
            ""));
}

std::string Command::rangeError(const std::string& text, const Range& range, bool isWhole) {
    return fmt::format("'{}' is not a {} from {} to {}", text, isWhole ? "whole number" : "number",
                       range.low, range.high);
}

std::string Command::orWord(const std::string& error, const std::string& word) {
    return error.empty() ? error : error + ", or " + word;
}

CLI::Validator Command::fileCheck() {
    return CLI::Validator(
        [](std::string& text) {
            if (text == "-") return std::string("a file is needed, not standard input");
            std::error_code ignored;
            const auto status = std::filesystem::status(text, ignored);
            if (!std::filesystem::exists(status)) return fmt::format("there is no file '{}'", text);
            if (std::filesystem::is_directory(status)) {
                return fmt::format("'{}' is a folder, not a file", text);
            }
            return std::string();
        },
        "");
}

CLI::Validator Command::outputFileCheck() {
    return CLI::Validator(
        [](std::string& text) {
            return text == "-" ? "a file is needed, not standard output" : std::string();
        },
        "");
}

CLI::Validator Command::clipCheck() {
    return CLI::Validator(
        [isFile = fileCheck()](std::string& text) {
            return isImageSequence(text) ? std::string() : isFile(text);
        },
        "");
}

CLI::Validator Command::axesCheck() {
    return CLI::Validator(
        [](std::string& text) {
            std::string letters = lowerCase(text);
            std::sort(letters.begin(), letters.end());
            return letters == "xyz"
                       ? std::string()
                       : "'" + text + "' is not one each of X, Y and Z, in lower case if negated";
        },
        "");
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

CLI::Validator Command::coefficientsCheck() {
    return CLI::Validator(
        [](std::string& text) {
            try {
                coefficientsIn(text);
            } catch (const std::invalid_argument& error) {
                return std::string(error.what());
            }
            return std::string();
        },
        "");
}

void addLensOptions(Command& command, LensOptions& lens, const std::string& group) {
    command
        .addChoice("--lens-model", lens.model, "Formula of the lens",
                   {"none", "polynomial", "fisheye"})
        ->group(group);
    command.addCoefficients("--lens", lens.k, "Its coefficients, one to four")->group(group);
}

void useSequenceRate(const std::vector<std::string>& clips, const std::optional<double>& rate) {
    const auto sequence = std::find_if(clips.begin(), clips.end(), isImageSequence);
    const bool isNeeded = sequence != clips.end();
    if (isNeeded && !rate) {
        throw CLI::ValidationError(
            "--fps", fmt::format("is needed for the image sequence {}", escaped(*sequence)));
    }
    if (rate && !isNeeded) {
        throw CLI::ValidationError("--fps",
                                   "goes with image sequences only, such as frame-%04d.png");
    }
    if (rate) setSequenceRate(*rate);
}

std::string outsidePathsNote(const std::string& path) {
    return escaped(path) +
           ": names files outside of its folder; it is read with --allow-outside-paths";
}

}  // namespace framehold
