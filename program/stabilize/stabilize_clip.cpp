#include "stabilize/stabilize_clip.h"

#include "calibrate/calibrate_clip.h"
#include "cli/run_files.h"
#include "compare/clip_report.h"
#include "media/results.h"
#include "report/run_record.h"
#include "report/verdict.h"
#include "session/session_file.h"
#include "stabilize/clip_run.h"
#include "stabilize/live_engine.h"
#include "stabilize/motion_samples.h"
#include "stabilize/offline_engine.h"
#include "stabilize/run_checks.h"

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

namespace framehold {

namespace {

/// Decides on the settings, with what a calibration finds where that is asked for.
/// ofCamera: is set to what it finds for other clips, too.
ClipSettings settingsFor(const StabilizeOptions& options, const ClipInputs& clip,
                         const ProgressTarget& progress, ClipMetadata& ofCamera) {
    const ClipSettings settings = resolveSettings(options.clip, clip);
    if (!options.findsUnknown) return settings;
    if (!clip.log) throw std::runtime_error("--auto needs a motion log: give --motion or --clip");
    FoundMetadata found = findUnknownMetadata(settings.camera, settings.engine, clip, progress);
    ofCamera = std::move(found.ofCamera);
    return resolveSettings(options.clip, clip, found.ofClip);
}

using Run = std::function<void(const ClipRun::EngineSetup& engine, const ProgressTarget& progress)>;

void runLive(const StabilizeOptions& options, const ClipInputs& clip, const ClipSettings& settings,
             const RunDisplay& display, const Run& run) {
    const MotionSamples motion = prepareMotion(clip, settings);
    std::optional<SessionWriter> session;
    LiveEngine::Extras extras{options.sideBySide, nullptr};
    if (!options.session.empty()) {
        session.emplace(OutputName{options.session, options.overwrites}, paramOf(settings));
        extras.session = &*session;
    }
    const auto make = [&](ClipEngine::Sink sink) {
        return std::make_unique<LiveEngine>(settings, motion.samples, extras, std::move(sink));
    };
    run({make, motion.notes, {}, {}, settings.crop}, display.progress.part(0.0, 1.0));
    if (session) session->finish();
}

void runOffline(const StabilizeOptions& options, const ClipInputs& clip,
                const ClipSettings& settings, const RunDisplay& display, const Run& run) {
    constexpr double kPlanning = 0.4;  // share of the time, about
    const ProgressTarget whole = display.progress.part(0.0, 1.0);
    const OfflinePlan plan = planOffline(clip, settings, whole.part(0.0, kPlanning));
    const auto make = [&](ClipEngine::Sink sink) {
        return std::make_unique<OfflineEngine>(plan, options.sideBySide, std::move(sink));
    };
    run({make, plan.notes, plan.hdr, plan.stageTimes, plan.crop}, whole.part(kPlanning, 1.0));
}

/// Makes the report, whose measures of the whole clips are better than those of the run.
void report(const StabilizeOptions& options, bool isQuiet, RunRecord& record) {
    ReportRequest request;
    request.original = options.files.video;
    request.stabilized = options.output;
    request.run = record;
    request.page = {options.report, options.overwrites};
    request.settings.quiet = isQuiet;
    if (const auto shake = makeReport(request)) record.shake = shake;
}

}  // namespace

ClipMetadata stabilizeClip(const StabilizeOptions& options, FoundClip found,
                           const RunDisplay& display, RunRecord& record) {
    RunMessages messages(record, display.label, display.showNotes, display.progress);
    VideoReader video(options.files.video);
    if (!options.takesResults && isMarkedAsResult(video.container())) {
        throw MediaError(options.files.video,
                         "is a result itself, which its motion log no longer fits; --again "
                         "stabilizes it all the same");
    }
    checkOutput(options, video);
    const ClipInputs clip = loadClipInputs(std::move(found), propertiesOf(video));
    ClipMetadata ofCamera;
    ClipSettings settings = settingsFor(options, clip, display.progress.part(0.0, 0.0), ofCamera);
    if (clip.log) {
        if (const auto finding = checkBeforeRun(options, clip, settings, messages)) {
            record.misfit = finding->text;
            record.remedy = finding->remedy;
        }
    }
    record.isCalibrated = options.findsUnknown;
    const auto runEngine = settings.engine == Engine::kLive ? runLive : runOffline;
    runEngine(options, clip, settings, display, [&](const auto& engine, const auto& progress) {
        ClipRun run(options, clip, settings, video, engine, record);
        run.announce(messages);
        run.run(progress, messages);
    });
    if (!options.exportPath.empty())
        writePathTable({options.exportPath, options.overwrites}, record);
    if (!options.saveRun.empty()) saveRunRecord({options.saveRun, options.overwrites}, record);
    messages.say("written: " + writtenName(options.output));
    if (!options.report.empty()) {
        report(options, !display.showNotes, record);
        messages.say("written: " + options.report);
    }
    messages.say(textOf(verdictOf(record)));
    return ofCamera;
}

}  // namespace framehold
