#include "inspect/inspection.h"

#include "cli/run_files.h"
#include "common/interruption.h"
#include "common/progress.h"
#include "common/text_fields.h"
#include "media/video_reader.h"
#include "motion/motion_log_reader.h"

#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

ClipInputs loadClip(const InspectOptions& o, CameraSettings& camera) {
    ClipInputs inputs =
        loadClipInputs(findClipFiles(o.files), propertiesOf(VideoReader(o.files.video)));
    camera = resolveCamera(o.camera, inputs);
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

std::vector<Inspection::ClipSource> sourcesOf(const InspectOptions& o, const ClipInputs& clip) {
    const ClipFiles& files = clip.files;
    std::vector<Inspection::ClipSource> sources;
    const auto add = [&](const char* what, const std::string& file, const std::string& rule) {
        if (!file.empty()) sources.push_back({what, file, rule});
    };
    add("metadata", files.metadata,
        o.files.metadata.empty() ? "beside the video" : "given with --clip");
    add("motion", files.motion, files.motionRule);
    const std::string& times = clip.metadata.framesFile;
    add("frame times", clip.metadata.frameTimes.empty() ? "" : times,
        times == files.frames || times == files.frameMetadata ? files.motionRule
                                                              : "with the metadata");
    add("of each frame", files.frameMetadata, files.motionRule);
    add("lens shifts", clip.metadata.lensShifts.value_or(""), "named by the metadata");
    return sources;
}

/// What is not known of the camera, and what that costs.
std::vector<LogFinding> findingsOf(const CameraSettings& camera) {
    std::vector<LogFinding> findings;
    const auto add = [&](const char* text) { findings.push_back({Severity::kNote, text}); };
    if (camera.fieldOfView.source == Source::kDefault) {
        add("the focal length is not known: stabilize takes that of a usual phone, and shake is "
            "left or overdone by as much as it is wrong; --focal, --auto or framehold calibrate");
    }
    if (camera.readoutTime.source == Source::kDefault) {
        add("the readout is not known: stabilize takes that of a usual phone, and fast shake bends "
            "the picture; --readout, --auto or framehold calibrate");
    }
    return findings;
}

/// Refuses a page in place of a file that is read.
void checkPage(const InspectOptions& o, const ClipInputs& clip) {
    RunFiles files;
    files.addInput(o.files.video);
    for (const std::string& file : filesRead(o.files, {clip.files, clip.metadata})) {
        files.addInput(file);
    }
    for (const std::string& file : clip.log->files) files.addInput(file);
    files.addOutput("--report", o.page.path);
    files.check(o.page.replaces, o.quiet);
}

VideoInspection inspectVideoOf(const InspectOptions& o, const ClipInputs& clip,
                               const MotionLog& log) {
    Progress progress("tracking", clip.video.expectedFrames, !o.quiet);
    return inspectVideo(clip.files.video, clip.metadata, log, !o.page.path.empty(), [&progress] {
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
    CameraSettings camera;
    ClipInputs clip =
        isVideo ? loadClip(o, camera) : ClipInputs{o.files, {}, {}, readMotionLog(o.files.video)};
    checkPage(o, clip);
    Inspection result;
    result.log = *std::move(clip.log);
    result.statistics = logStatistics(result.log);
    result.findings = findingsOf(result.log, result.statistics);
    if (isVideo) {
        result.video = inspectVideoOf(o, clip, result.log);
        if (const auto& found = result.video->found) {
            camera.timeOffset = {found->timeOffset, Source::kFound, "found in the clip"};
        }
        result.sources = sourcesOf(o, clip);
        result.camera = describe(camera);
        for (const std::string& warning : clip.metadata.warnings) {
            result.findings.push_back({Severity::kWarning, warning});
        }
        for (const auto& findings : {findingsOf(*result.video), findingsOf(camera)}) {
            result.findings.insert(result.findings.end(), findings.begin(), findings.end());
        }
        sortFindings(result.findings);
    }
    if (!o.page.path.empty()) writeFile(o.page, inspectionPage(result));
    fmt::print("{}", o.json ? inspectionJson(result) + "\n" : inspectionText(result));
    if (!o.page.path.empty() && !o.quiet) {
        fmt::print(stderr, "written: {}\n", escaped(o.page.path));
    }
    if (!result.isUsable()) throw std::runtime_error(o.files.video + ": is not usable as it is");
    if (result.video) reportLosses(result.video->losses);
}

}  // namespace framehold
