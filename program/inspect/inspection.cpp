#include "inspect/inspection.h"

#include "cli/run_files.h"
#include "common/interruption.h"
#include "common/progress.h"
#include "media/video_reader.h"
#include "motion/motion_log_reader.h"

#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

ClipInputs loadClip(const InspectOptions& o) {
    ClipInputs inputs =
        loadClipInputs(findClipFiles(o.files), propertiesOf(VideoReader(o.files.video)));
    const CameraSettings camera = resolveCamera(o.camera, inputs);
    inputs.metadata.timeOffset.reset();
    if (camera.timeOffset.source != Source::kDefault) {
        inputs.metadata.timeOffset = camera.timeOffset.value;
    }
    inputs.metadata.readoutTime = camera.readoutTime.value;
    inputs.metadata.clockDrift = camera.clockDrift.value;
    inputs.metadata.axes = camera.axes.value;
    inputs.metadata.focalLength.reset();
    if (camera.fieldOfView.source != Source::kDefault) {
        inputs.metadata.focalLength = focalLength(camera.fieldOfView.value, inputs.video);
    }
    if (inputs.log) return inputs;
    throw std::runtime_error(
        o.files.video +
        ": holds no motion telemetry (no GPMF, CAMM or mett track); give its log "
        "with --motion or --clip");
}

VideoInspection inspectVideoOf(const ClipInputs& clip, const MotionLog& log, bool showsProgress) {
    Progress progress("tracking", clip.video.expectedFrames, showsProgress);
    return inspectVideo(clip.files.video, clip.metadata, log, [&progress] {
        throwIfInterrupted();
        progress.advance();
    });
}

}  // namespace

void inspectFile(const InspectOptions& o) {
    const bool isVideo = isVideoFile(o.files.video);
    if (!isVideo && (!o.files.motion.empty() || !o.files.metadata.empty())) {
        throw std::runtime_error(o.files.video +
                                 ": is not a video; --motion and --clip go with a video");
    }
    ClipInputs clip =
        isVideo ? loadClip(o) : ClipInputs{o.files, {}, {}, readMotionLog(o.files.video)};
    Inspection result;
    result.log = *std::move(clip.log);
    result.statistics = logStatistics(result.log);
    result.findings = findingsOf(result.log, result.statistics);
    if (isVideo) {
        result.video = inspectVideoOf(clip, result.log, !o.quiet);
        for (const LogFinding& finding : findingsOf(*result.video))
            result.findings.push_back(finding);
        sortFindings(result.findings);
    }
    fmt::print("{}", o.json ? inspectionJson(result) + "\n" : inspectionText(result));
    if (!result.isUsable()) throw std::runtime_error(o.files.video + ": is not usable as it is");
    if (result.video) reportLosses(result.video->losses);
}

}  // namespace framehold
