#include "cli/options.h"
#include "commands/commands.h"
#include "convert/convert_log.h"

#include <memory>

namespace framehold {

void addConvertCommand(Command& program) {
    auto options = std::make_shared<ConvertOptions>();
    ConvertOptions& o = *options;
    Command& command = program.addCommand("convert", "Write a motion log in another format");
    command.setNotes(
        "LOG is any log that stabilize reads, or a video with telemetry. It is written as it was "
        "logged, in seconds, rad/s and m/s^2, with the orientation of its axes: as .gcsv 1.3, as "
        "CSV "
        "with units in the names of its columns, or as CAMM telemetry in an MP4 or MOV, alone or "
        "beside the streams of --video.");
    command.setExamples({"framehold convert Gyroscope.csv -o walk.gcsv",
                         "framehold convert walk.gcsv --video walk.mp4 -o walk-with-motion.mp4",
                         "framehold convert walk-with-motion.mp4 -o walk.csv"});
    command.addInputFile("LOG", o.log, "Motion log to read")->required();
    command.addResult("-o,--output", o.output, "File to write; - is standard output")->required();
    command.addChoice("--format", o.format, "Format of the file (default: by its ending)",
                      {"gcsv", "csv", "mp4"});
    CLI::Option* video =
        command.addInputFile("--video", o.video, "Copy this video's streams beside the motion");
    addTimeOffsetOption(command, o.timeOffset)->needs(video);
    addOverwriteFlag(command, o.overwrites);
    addQuietFlag(command, o.quiet);
    command.callback([options] { convertLog(*options); });
}

}  // namespace framehold
