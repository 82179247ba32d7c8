#include "cli/options.h"
#include "commands/commands.h"
#include "compare/measured_clips.h"

#include <memory>

namespace framehold {

void addMeasureCommand(Command& program) {
    auto options = std::make_shared<MeasureOptions>();
    auto rate = std::make_shared<std::optional<double>>();
    MeasureOptions& o = *options;
    Command& command = program.addCommand("measure", "Measure how shaky clips are");
    command.setNotes(
        "The first clip is the original; the others may come from any stabilizer, in any "
        "size. Shake is what the picture moves faster than --cutoff; pans and slow sway do "
        "not count. Sizes may differ, and so may numbers of frames: frames belong together "
        "that are shown at the same time after the first one, or --delay frames apart. A "
        "black border is found, a mirrored or stretched one is not.");
    command.setExamples({"framehold measure walk.mp4",
                         "framehold measure walk.mp4 steady.mp4 other-tool.mp4 --json"});
    command.addClip("CLIP", o.videos, "The original, then stabilized clips")->required();
    addSequenceRateOption(command, *rate);
    addCutoffOption(command, o.settings.cutoff);
    addDelayOption(command, o.settings.delay, "Frames by which the stabilized clips are late")
        ->capture_default_str();
    addJsonFlag(command, o.json);
    command.addOutputFile("--csv", o.csv, "Write the path of every clip's picture to this file");
    addOverwriteFlag(command, o.overwrites);
    addQuietFlag(command, o.settings.quiet);
    command.callback([options, rate] {
        useSequenceRate(options->videos, *rate);
        printMeasures(*options);
    });
}

}  // namespace framehold
