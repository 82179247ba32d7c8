#include "cli/options.h"
#include "clip/clip_inputs.h"
#include "commands/commands.h"
#include "common/interruption.h"
#include "common/progress.h"
#include "inspect/inspection.h"
#include "media/video_reader.h"
#include "motion/motion_log_reader.h"

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include <fmt/format.h>

namespace framehold {

namespace {

struct InspectOptions {
    std::string file;    // a log or a video
    std::string motion;  // the video's log; empty: that of clip.json, or its telemetry
    std::string clip;
    std::optional<double> timeOffset;   // seconds
    std::optional<double> readoutTime;  // seconds
    bool json = false;
    bool quiet = false;
};

ClipInputs loadClip(const InspectOptions& o) {
    ClipInputs inputs = loadClipInputs(findClipFiles({o.file, o.clip, o.motion, ""}),
                                       propertiesOf(VideoReader(o.file)));
    if (o.timeOffset) inputs.metadata.timeOffset = o.timeOffset;
    if (o.readoutTime) inputs.metadata.readoutTime = o.readoutTime;
    if (inputs.log) return inputs;
    throw std::runtime_error(o.file +
                             ": holds no motion telemetry (no GPMF or CAMM track); give its log "
                             "with --motion or --clip");
}

VideoInspection inspectVideoOf(const ClipInputs& clip, bool showsProgress) {
    Progress progress("tracking", clip.video.expectedFrames, showsProgress);
    return inspectVideo(clip.files.video, clip.metadata, *clip.log, [&progress] {
        throwIfInterrupted();
        progress.advance();
    });
}

void inspect(const InspectOptions& o) {
    const bool isVideo = isVideoFile(o.file);
    if (!isVideo && (!o.motion.empty() || !o.clip.empty())) {
        throw std::runtime_error(o.file + ": is not a video; --motion and --clip go with a video");
    }
    ClipInputs clip;
    if (isVideo) {
        clip = loadClip(o);
    } else {
        clip.log = readMotionLog(o.file);
    }
    Inspection result;
    result.log = *clip.log;
    result.statistics = logStatistics(result.log);
    result.findings = findingsOf(result.log, result.statistics);
    if (isVideo) {
        result.video = inspectVideoOf(clip, !o.quiet);
        for (const LogFinding& finding : findingsOf(*result.video))
            result.findings.push_back(finding);
        sortFindings(result.findings);
    }
    fmt::print("{}", o.json ? inspectionJson(result) + "\n" : inspectionText(result));
    if (!result.isUsable()) throw std::runtime_error(o.file + ": is not usable as it is");
}

}  // namespace

void addInspectCommand(Command& program) {
    auto options = std::make_shared<InspectOptions>();
    InspectOptions& o = *options;
    Command& command = program.addCommand("inspect", "Check a motion log, alone or with its video");
    command.setNotes(
        "Prints the format, rates, gaps, noise and range of the log, with a video also how the two "
        "clocks differ, and problems to expect. Fails if the log is not usable or cannot be read. "
        "What is not given is looked for beside the video, as stabilize does.");
    command.setExamples({"framehold inspect walk.gcsv",
                         "framehold inspect walk.mp4 --motion walk.gcsv",
                         "framehold inspect walk.mp4 --clip clip.json --json"});
    command.addInputFile("FILE", o.file, "A motion log, or a video")->required();
    command.addInputFile("-m,--motion", o.motion, "The video's log");
    command.addInputFile("--clip", o.clip, "clip.json with the video's metadata");
    addTimeOffsetOption(command, o.timeOffset);
    addReadoutOption(command, o.readoutTime);
    addJsonFlag(command, o.json);
    addQuietFlag(command, o.quiet);
    command.callback([options] { inspect(*options); });
}

}  // namespace framehold
