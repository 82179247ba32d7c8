// What help and completions are made of, errors of usage, and the suggestion of names.

#include "cli/option_text.h"
#include "cli/usage_errors.h"
#include "common/nearest_name.h"

#include <gtest/gtest.h>

namespace framehold {

namespace {

TEST(NearestName, IsFoundOnlyWhereItIsLikely) {
    const std::vector<std::string> kNames = {"focal_px", "readout_s", "time_offset_s", "axes"};
    const struct {
        const char* word;
        const char* nearest;
    } kCases[] = {
        {"focal_xp", "focal_px"},  // two swapped
        {"focal", "focal_px"},     // shortened
        {"readout", "readout_s"},
        {"readout_ms", "readout_s"},
        {"timeoffset", "time_offset_s"},
        {"axis", "axes"},
        {"licence", ""},
        {"fps", ""},
        {"", ""},
        {"x", ""},
    };
    for (const auto& c : kCases) EXPECT_EQ(nearestName(c.word, kNames), c.nearest) << c.word;
}

TEST(OptionText, TellsWhatAnOptionTakes) {
    Command app("Test", "test");
    double number = 2.5;
    std::optional<int> count;
    std::string text;
    std::vector<std::string> files;
    bool flag = false;
    const struct {
        CLI::Option* option;
        const char* heading;
        const char* description;
        bool takesFile;
    } kCases[] = {
        {app.addNumber("-n,--number", number, "Weight", {0.5, 4.0})->capture_default_str(),
         "-n, --number=N", "Weight (0.5 to 4; default 2.5)", false},
        {app.addNumber("--count", count, "Items", {1, 1000000}), "--count=N", "Items (at least 1)",
         false},
        {app.addChoice("--side", text, "Side", {"left", "right"}), "--side=NAME",
         "Side (left or right)", false},
        {app.addInputFile("FILES", files, "Inputs"), "FILES...", "Inputs", true},
        {app.add_flag("-q", flag, "Quiet"), "-q", "Quiet", false},
    };
    for (const auto& c : kCases) {
        const OptionText described = describe(app, *c.option);
        EXPECT_EQ(described.heading(), c.heading);
        EXPECT_EQ(described.description, c.description) << c.heading;
        EXPECT_EQ(described.takesFile, c.takesFile) << c.heading;
    }
    EXPECT_EQ(usageOf(app), "test [OPTIONS] [FILES...]");
}

/// What is printed for a command line; empty if it is accepted.
std::string errorOf(Command& program, const std::string& line) {
    std::string text = findWrongWord(program, CLI::detail::split(line, ' '));
    try {
        if (text.empty()) program.parse(line);
    } catch (const CLI::ParseError& error) {
        text = describeUsageError(program, error);
    }
    return text.substr(0, text.find('\n'));
}

TEST(UsageErrors, NameTheOptionAndWhatItTakes) {
    const struct {
        const char* line;
        const char* error;
    } kCases[] = {
        {"run . --count 1 --weight 0.5 --side left --axis 1,-2e3,3", ""},
        {"", "test: a command is missing"},
        {"rum .", "test: rum: there is no such command; did you mean run?"},
        {"run", "test run: PATH is required"},
        {"run . .", "test run: .: one argument too many"},
        {"run . --cont 3", "test run: --cont: there is no such option; did you mean --count?"},
        {"run . -", "test run: -: one argument too many"},
        {"run /none --cont 3", "test run: --cont: there is no such option; did you mean --count?"},
        {"run . --count 0", "test run: --count: '0' is not a whole number from 1 to 9"},
        {"run . --count 10", "test run: --count: '10' is not a whole number from 1 to 9"},
        {"run . --count 2.5", "test run: --count: '2.5' is not a whole number from 1 to 9"},
        {"run . --part all", ""},
        {"run . --part every", "test run: --part: 'every' is not a number from 1 to 9, or all"},
        {"run . --weight x", "test run: --weight: 'x' is not a number from 0.5 to 1000000"},
        {"run . --weight nan", "test run: --weight: 'nan' is not a number from 0.5 to 1000000"},
        {"run . --count", "test run: --count: a value is missing"},
        {"run . --count 1 --count", "test run: --count: a value is missing"},
        {"run . --count 1 --count 2", "test run: --count: takes 1 value, not 2"},
        {"run . --file --count 2", "test run: --file: a value is missing before --count"},
        {"run . -qf -q", "test run: -f: a value is missing before -q"},
        {"run . -qf/", "test run: --file: '/' is a folder, not a file"},
        {"run . --quiet=5", "test run: --quiet: takes no value"},
        {"run . -quiet", "test run: -quiet: there is no such option; did you mean --quiet?"},
        {"run . --side up", "test run: --side: 'up' is not left or right"},
        {"run . --axis 1,2", "test run: --axis: takes 3 values, not 2"},
        {"run . --axis 1,2,inf", "test run: --axis: 'inf' is not a number"},
        {"run . --file /none", "test run: --file: there is no file '/none'"},
        {"run . --file /", "test run: --file: '/' is a folder, not a file"},
    };
    for (const auto& c : kCases) {
        Command program("Test", "test");
        program.require_subcommand(1);
        Command& run = program.addCommand("run", "Run");
        int count = 0;
        std::optional<double> weight, part;
        std::string side, file, path;
        std::vector<double> axis;
        run.addPath("PATH", path, "Input", "PATH")->required();
        run.addNumber("--count", count, "Items", {1, 9});
        run.addNumber("--weight", weight, "Weight", {0.5, 1e6});
        run.addNumberOrWord("--part", part, "Part", {1, 9}, "all", "10");
        run.addChoice("--side", side, "Side", {"left", "right"});
        run.addVector("--axis", axis, "Axis");
        run.addInputFile("-f,--file", file, "File");
        bool quiet = false;
        run.add_flag("-q,--quiet", quiet, "Quiet");
        EXPECT_EQ(errorOf(program, c.line), c.error) << c.line;
        EXPECT_EQ(part.value_or(10.0), 10.0);
    }
}

}  // namespace

}  // namespace framehold
