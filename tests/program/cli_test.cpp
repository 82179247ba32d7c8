// What help, manual and completions are made of, and the suggestion of names.

#include "cli/option_text.h"
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
        {app.addChoice("--side", text, "Side", {"left", "right"}), "--side=NAME", "Side (left or right)",
         false},
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

}  // namespace

}  // namespace framehold
