#include "stabilize/stabilize_clip.h"

#include "calibrate/calibrate_clip.h"
#include "compare/clip_report.h"
#include "media/results.h"
#include "report/run_record.h"
#include "stabilize/clip_run.h"
#include "stabilize/run_checks.h"

#include <utility>

namespace framehold {

namespace {

/// Decides on the settings, with what a calibration finds where that is asked for.
ClipSettings settingsFor(const StabilizeOptions& options, const ClipInputs& clip,
                         bool showsProgress) {
    const ClipSettings settings = resolveSettings(options.clip, clip);
    if (!options.findsUnknown) return settings;
    return resolveSettings(options.clip, clip,
                           findUnknownMetadata(settings.camera, clip, showsProgress));
}

void report(const StabilizeOptions& options, bool showsProgress, const RunRecord& record) {
    ReportRequest request;
    request.original = options.files.video;
    request.stabilized = options.output;
    request.run = record;
    request.page = {options.report, options.overwrites};
    request.settings.quiet = !showsProgress;
    makeReport(request);
}

}  // namespace

void stabilizeClip(const StabilizeOptions& options, FoundClip found, const RunDisplay& display,
                   RunRecord& record) {
    RunMessages messages(record, display.label, display.showNotes);
    VideoReader video(options.files.video);
    if (!options.takesResults && isMarkedAsResult(video.container())) {
        throw MediaError(options.files.video,
                         "is a result itself, which its motion log no longer fits; --again "
                         "stabilizes it all the same");
    }
    const ClipInputs clip = loadClipInputs(std::move(found), propertiesOf(video));
    const ClipSettings settings = settingsFor(options, clip, display.showProgress);
    checkBeforeRun(options, clip, settings, messages);
    ClipRun run(options, clip, settings, prepareMotion(clip, settings), video, display.observePath,
                record);
    run.announce(messages);
    run.run(display.showProgress, messages);
    if (!options.exportPath.empty())
        writePathTable({options.exportPath, options.overwrites}, record);
    if (!options.saveRun.empty()) saveRunRecord({options.saveRun, options.overwrites}, record);
    messages.say("written: " + (options.output == "-" ? "standard output" : options.output));
    if (options.report.empty()) return;
    report(options, display.showProgress, record);
    messages.say("written: " + options.report);
}

}  // namespace framehold
