#include "cli/options.h"
#include "commands/commands.h"
#include "inspect/inspection.h"

#include <memory>

namespace framehold {

void addInspectCommand(Command& program) {
    auto options = std::make_shared<InspectOptions>();
    auto rate = std::make_shared<std::optional<double>>();
    InspectOptions& o = *options;
    Command& command = program.addCommand("inspect", "Check a motion log, alone or with its video");
    command.setNotes(
        "Prints the format, rates, gaps, noise and range of the log, with a video also how the two "
        "clocks differ, and problems to expect. Fails if the log is not usable or cannot be read. "
        "What is not given is looked for beside the video, as stabilize does.");
    command.setExamples({"framehold inspect walk.gcsv",
                         "framehold inspect walk.mp4 --motion walk.gcsv",
                         "framehold inspect walk.mp4 --clip clip.json --json",
                         "framehold inspect walk.mp4 --report walk.html"});
    command.addClip("FILE", o.files.video, "A motion log, or a video")->required();
    command.addInputFile("-m,--motion", o.files.motion, "The video's log");
    command.addInputFile("--clip", o.files.metadata, "clip.json with the video's metadata");
    addOutsidePathsFlag(command, o.files.allowsOutsidePaths);
    addSequenceRateOption(command, *rate);
    addFocalOption(command, o.camera.focalLength);
    addTimeOffsetOption(command, o.camera.timeOffset);
    addReadoutOption(command, o.camera.readoutTime);
    addAxesOption(command, o.camera.axes);
    command.addOutputFile("--report", o.page.path,
                          "Write an HTML page with pictures of rates and clocks");
    addOverwriteFlag(command, o.page.replaces);
    addJsonFlag(command, o.json);
    addQuietFlag(command, o.quiet);
    command.callback([options, rate] {
        useSequenceRate({options->files.video}, *rate);
        inspectFile(*options);
    });
}

}  // namespace framehold
