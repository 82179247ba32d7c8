#include "calibrate/calibrate_camera.h"
#include "cli/options.h"
#include "commands/commands.h"

#include <memory>

namespace framehold {

void addCalibrateCommand(Command& program) {
    auto options = std::make_shared<CalibrateOptions>();
    auto rate = std::make_shared<std::optional<double>>();
    CalibrateOptions& o = *options;
    Command& command = program.addCommand(
        "calibrate", "Find focal length, readout, axes and time offset from clips");
    command.setNotes(
        "Handheld clips of ten seconds or more that show distant things work best. What cannot be "
        "found is left out of the result. A lens is found where the clips show one, by the "
        "polynomial model; --lens-model alone asks for one. Frame times come from a frames.csv "
        "beside VIDEO, else "
        "from the video.");
    command.setExamples(
        {"framehold calibrate walk.mp4 --motion walk.gcsv -o walk.json",
         "framehold stabilize walk.mp4 --clip walk.json -o steady.mp4",
         "framehold calibrate a.mp4 b.mp4 --motion a.gcsv b.gcsv --snippet camera.c"});
    command.addClip("VIDEO", o.videos, "Clips of one camera in one mode")->required();
    command.addInputFile("-m,--motion", o.motions, "Their motion logs (default: beside VIDEO)");
    command.addResult("-o,--output", o.output,
                      "clip.json to write, - for standard output (default: VIDEO's name.json)");
    command.addOutputFile("--snippet", o.snippet, "Write C code that fills in the parameters");
    addOverwriteFlag(command, o.overwrites);
    addJsonFlag(command, o.json, "Print all numbers on standard output");
    addSequenceRateOption(command, *rate);
    command.addNumber("--seconds", o.seconds, "Seconds of each clip to use", {1.0, 3600.0})
        ->capture_default_str();
    command
        .addNumber("--range", o.range, "Seconds the clocks may differ (default: as the log allows)",
                   {0.01, 1e9})
        ->default_str("");
    addOutsidePathsFlag(command, o.allowsOutsidePaths);
    addQuietFlag(command, o.quiet);

    const std::string known = "Known already";
    addFocalOption(command, o.known.focalLength)->group(known);
    addLensOptions(command, o.known.lens, known);
    addReadoutOption(command, o.known.readoutTime)->group(known);
    addTimeOffsetOption(command, o.known.timeOffset)->group(known);
    addAxesOption(command, o.known.axes)->group(known);
    command.callback([options, rate] {
        useSequenceRate(options->videos, *rate);
        calibrateCamera(*options);
    });
}

}  // namespace framehold
