#include "cli/options.h"
#include "commands/commands.h"
#include "compare/side_by_side.h"

#include <memory>

namespace framehold {

void addCompareCommand(Command& program) {
    auto options = std::make_shared<CompareOptions>();
    auto rate = std::make_shared<std::optional<double>>();
    CompareOptions& o = *options;
    Command& command = program.addCommand("compare", "Show two clips side by side");
    command.setNotes(
        "The first clip is on the left. The picture is the mean of some frames: the shake of "
        "a second blurs it, and what stands still stays sharp.");
    command.setExamples(
        {"framehold compare walk.mp4 steady.mp4 --video both.mp4 --picture mean.png"});
    command.addClip("BEFORE", o.before, "One clip")->required();
    command.addClip("AFTER", o.after, "The other one")->required();
    addSequenceRateOption(command, *rate);
    command.addResult("--video", o.video,
                      "Write both beside each other to this file, or - for y4m on standard output");
    command.addOutputFile("--picture", o.picture,
                          "Write the mean of some frames to this .png file");
    command.addNumber("--from", o.firstFrame, "First frame of the picture", {0, 1000000})
        ->capture_default_str();
    command.addNumber("--frames", o.frames, "Number of frames in the picture", {1, 1000})
        ->capture_default_str();
    addOverwriteFlag(command, o.overwrites);
    addQuietFlag(command, o.quiet);
    command.callback([options, rate] {
        useSequenceRate({options->before, options->after}, *rate);
        if (options->video.empty() && options->picture.empty()) {
            throw CLI::ValidationError("nothing to do: give --video or --picture");
        }
        compareClips(*options);
    });
}

}  // namespace framehold
