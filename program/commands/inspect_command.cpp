#include "cli/options.h"
#include "clip/camera_settings.h"
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
    CameraOptions camera;
    bool json = false;
    bool quiet = false;
};

ClipInputs loadClip(const InspectOptions& o) {
    ClipInputs inputs = loadClipInputs(findClipFiles({o.file, o.clip, o.motion, ""}),
                                       propertiesOf(VideoReader(o.file)));
    const CameraSettings camera = resolveCamera(o.camera, inputs);
    inputs.metadata.timeOffset = camera.timeOffset.value;
    inputs.metadata.readoutTime = camera.readoutTime.value;
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
    addTimeOffsetOption(command, o.camera.timeOffset);
    addReadoutOption(command, o.camera.readoutTime);
    addJsonFlag(command, o.json);
    addQuietFlag(command, o.quiet);
    command.callback([options] { inspect(*options); });
}

}  // namespace framehold
