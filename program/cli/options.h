#pragma once

#include "cli/lens_options.h"
#include "cli/picture_size.h"

#include <map>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <CLI/CLI.hpp>

namespace framehold {

/// Smallest and largest number that an option takes.
struct Range {
    double low;
    double high;
};

/// What the value of an option or argument may be. Help, completions and errors show it.
struct OptionValue {
    std::string placeholder = "TEXT";
    std::optional<Range> range;
    std::vector<std::string> choices;  // the only values, if not empty
    bool isPath = false;
};

/// "bash, fish or zsh"
std::string listOf(const std::vector<std::string>& choices);

/// A command, or the program that has commands. Keeps for each of its options what values it
/// takes, beside the check that the parser makes. Flags are added with `add_flag`.
/// Wherever `value` is an optional, it stays empty if the option is not given.
class Command final : public CLI::App {
public:
    /// Makes a program.
    Command(const std::string& description, const std::string& name);

    Command& addCommand(const std::string& name, const std::string& description);

    /// Commands in the order in which they were added.
    const std::vector<const Command*>& commands() const { return commands_; }

    /// Paragraph that help shows below the description.
    void setNotes(const std::string& notes) { notes_ = notes; }
    const std::string& notes() const { return notes_; }

    /// Command lines that help shows as examples.
    void setExamples(std::vector<std::string> examples) { examples_ = std::move(examples); }
    const std::vector<std::string>& examples() const { return examples_; }

    /// Values of an option or argument of this command; nothing for a flag.
    std::optional<OptionValue> valueOf(const CLI::Option& option) const;

    /// Word that was given to an option in place of a number. name: long, without "--".
    std::optional<std::string> wordFor(const std::string& name) const {
        const auto found = words_.find(name);
        return found == words_.end() ? std::nullopt : std::optional(found->second);
    }

    template <typename Number>
    CLI::Option* addNumber(const std::string& names, Number& value, const std::string& description,
                           const Range& range) {
        return addValue(names, value, description, {"N", range, {}, false})
            ->check(rangeCheck(value, range));
    }

    /// Adds an option that takes a number, or a word in place of a number that the range may lack.
    /// names: "--" and the long name.
    template <typename Number>
    CLI::Option* addNumberOrWord(const std::string& names, Number& value,
                                 const std::string& description, const Range& range,
                                 const std::string& word, const std::string& meaning) {
        const CLI::Validator check = rangeCheck(value, range);
        return addValue(names, value, description, {"N|" + word, range, {}, false})
            ->transform(CLI::Validator(
                [=](std::string& text) {
                    words_.erase(names.substr(2));
                    if (text != word) return orWord(check(text), word);
                    words_[names.substr(2)] = word;
                    text = meaning;
                    return std::string();
                },
                ""));
    }

    /// Adds an option that takes three numbers with commas between them.
    CLI::Option* addVector(const std::string& names, std::vector<double>& value,
                           const std::string& description);

    /// Adds an option that may be given several times, each time with a key and a value.
    CLI::Option* addKeyValues(const std::string& names, std::vector<std::string>& values,
                              const std::string& description);

    template <typename Text>
    CLI::Option* addText(const std::string& names, Text& value, const std::string& description) {
        return addValue(names, value, description, {});
    }

    CLI::Option* addChoice(const std::string& names, std::string& value,
                           const std::string& description, const std::vector<std::string>& choices);

    /// Adds an option that takes the letters of an axis mapping; `Text` is a string or an optional
    /// one.
    template <typename Text>
    CLI::Option* addAxes(const std::string& names, Text& value, const std::string& description) {
        return addValue(names, value, description, {"XYZ", {}, {}, false})->check(axesCheck());
    }

    /// Adds an option that takes the coefficients of a lens.
    CLI::Option* addCoefficients(const std::string& names, std::string& value,
                                 const std::string& description) {
        return addValue(names, value, description, {"K1,K2,K3,K4", {}, {}, false})
            ->check(coefficientsCheck());
    }

    /// Adds an option that takes even sizes that the library can work with; `Size` is PictureSize
    /// or an optional one.
    template <typename Size>
    CLI::Option* addPictureSize(const std::string& names, Size& value,
                                const std::string& description) {
        return addValue(names, value, description, {"WxH", {}, {}, false})
            ->check(pictureSizeCheck());
    }

    /// Adds an option that takes a file that is there; `Paths` is a string or several.
    template <typename Paths>
    CLI::Option* addInputFile(const std::string& names, Paths& value,
                              const std::string& description) {
        return addPath(names, value, description, "FILE")->check(fileCheck());
    }

    /// Adds an option that takes a clip: a file that is there, or the pattern of an image sequence.
    template <typename Paths>
    CLI::Option* addClip(const std::string& names, Paths& value, const std::string& description) {
        return addPath(names, value, description, "FILE")->check(clipCheck());
    }

    /// Adds an option that takes the path of something that may not be there.
    template <typename Paths>
    CLI::Option* addPath(const std::string& names, Paths& value, const std::string& description,
                         const std::string& placeholder) {
        return addValue(names, value, description, {placeholder, {}, {}, true});
    }

    /// Adds an option that takes the name of a file to write, not "-".
    CLI::Option* addOutputFile(const std::string& names, std::string& value,
                               const std::string& description) {
        return addPath(names, value, description, "FILE")->check(outputFileCheck());
    }

    /// Adds an option that takes the name of a command's result, or "-" for standard output.
    CLI::Option* addResult(const std::string& names, std::string& value,
                           const std::string& description) {
        return addPath(names, value, description, "FILE");
    }

private:
    using CLI::App::add_option;  // would leave out what the option takes

    Command(const std::string& description, const std::string& name, Command* parent);

    template <typename T>
    CLI::Option* addValue(const std::string& names, T& value, const std::string& description,
                          OptionValue takes) {
        CLI::Option* option = add_option(names, value, description);
        values_[option] = std::move(takes);
        return option;
    }

    template <typename Number>
    static CLI::Validator rangeCheck(const Number& /*type*/, const Range& range) {
        return CLI::Validator(
            [range](std::string& text) {
                Number number;
                const bool fits = CLI::detail::lexical_cast(text, number) && number >= range.low &&
                                  number <= range.high;
                return fits ? "" : rangeError(text, range, std::is_integral_v<Number>);
            },
            "");
    }
    template <typename Number>
    static CLI::Validator rangeCheck(const std::optional<Number>& /*type*/, const Range& range) {
        return rangeCheck(Number(), range);
    }

    static std::string rangeError(const std::string& text, const Range& range, bool isWhole);
    static std::string orWord(const std::string& error, const std::string& word);
    static CLI::Validator pictureSizeCheck();
    static CLI::Validator fileCheck();
    static CLI::Validator outputFileCheck();
    static CLI::Validator clipCheck();
    static CLI::Validator axesCheck();
    static CLI::Validator coefficientsCheck();

    std::string notes_;
    std::vector<std::string> examples_;
    std::vector<const Command*> commands_;
    std::map<const CLI::Option*, OptionValue> values_;
    std::map<std::string, std::string> words_;  // by the names of the options that have them
};

// Options that several commands have, the same everywhere. `Number` and `Text` may be optional.

template <typename Number>
CLI::Option* addFocalOption(Command& command, Number& pixels) {
    return command.addNumber("--focal", pixels, "Focal length in pixels", {1.0, 1e6});
}

template <typename Number>
CLI::Option* addReadoutOption(Command& command, Number& seconds) {
    return command.addNumber("--readout", seconds, "Rolling-shutter readout in seconds",
                             {0.0, 1.0});
}

inline CLI::Option* addTimeOffsetOption(Command& command, std::optional<double>& seconds) {
    return command.addNumber("--time-offset", seconds, "Seconds to add to frame times",
                             {-1e6, 1e6});
}

template <typename Text>
CLI::Option* addAxesOption(Command& command, Text& letters) {
    return command.addAxes("--axes", letters, "Logged axes as device x, y, z; lower case: negated");
}

/// Adds --lens-model and --lens.
void addLensOptions(Command& command, LensOptions& lens, const std::string& group);

/// Adds the frames that a stabilized clip is behind its original; `Number` is int or an optional one.
template <typename Number>
CLI::Option* addDelayOption(Command& command, Number& frames, const std::string& description) {
    return command.addNumber("--delay", frames, description, {0, 1000});
}

/// Adds the frequency that measures take as the lowest of shake.
inline CLI::Option* addCutoffOption(Command& command, double& hertz) {
    return command.addNumber("--cutoff", hertz, "Hz; slower motion is not shake", {0.05, 10.0})
        ->capture_default_str();
}

/// Adds the rate of the image sequences among a command's clips, see useSequenceRate.
inline CLI::Option* addSequenceRateOption(Command& command, std::optional<double>& rate) {
    return command.addNumber("--fps", rate, "Frames per second of image sequences", {0.1, 1000.0});
}

/// Takes the rate for all image sequences that the program opens. clips: of the command. Throws
/// CLI::ValidationError if there is a sequence and no rate, or a rate and no sequence.
void useSequenceRate(const std::vector<std::string>& clips, const std::optional<double>& rate);

inline CLI::Option* addOutsidePathsFlag(Command& command, bool& allows) {
    return command.add_flag("--allow-outside-paths", allows,
                            "Let a clip.json name files outside of its folder");
}

/// Remark about a clip.json that was written and names files outside of its folder.
std::string outsidePathsNote(const std::string& path);

inline CLI::Option* addQuietFlag(Command& command, bool& quiet,
                                 const std::string& description = "No progress bar") {
    return command.add_flag("-q,--quiet", quiet, description);
}

inline CLI::Option* addOverwriteFlag(Command& command, bool& overwrites) {
    return command.add_flag("--overwrite", overwrites, "Replace results that are there");
}

inline CLI::Option* addJsonFlag(Command& command, bool& json,
                                const std::string& description = "Print JSON") {
    return command.add_flag("--json", json, description);
}

}  // namespace framehold
