#include "stabilize/offline_plan.h"

#include "cli/lens_options.h"
#include "common/angles.h"
#include "common/interruption.h"
#include "common/progress.h"
#include "common/text_fields.h"
#include "media/video_reader.h"
#include "path/optimal_path.h"
#include "path/picture_refinement.h"
#include "path/unexplained_turn.h"
#include "path/zoom_choice.h"
#include "stabilize/motion_samples.h"
#include "tracking/feature_tracks.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>

namespace framehold {

namespace {

constexpr double kAnalysis = 0.9;  // share of the work that is not for the path

/// The clip's log on the frames' clock, in device axes.
MotionLog deviceLog(const ClipInputs& clip, const ClipSettings& settings) {
    MotionLog log = *clip.log;
    log.stretch(settings.camera.clockFactor());
    log.toDeviceAxes(settings.camera.axes.value);
    return log;
}

OrientationTrack trackOf(const ClipInputs& clip, const ClipSettings& settings) {
    if (!clip.log) return {};
    return OrientationTrack(GyroPath(deviceLog(clip, settings).angularRates()));
}

LensShiftTrack shiftsOf(const ClipInputs& clip, const ClipSettings& settings) {
    if (!clip.log || clip.log->lensShifts.empty()) return {};
    MotionLog log;
    log.lensShifts = clip.log->lensShifts;
    log.stretch(settings.camera.clockFactor());
    log.lensShiftWidth = clip.log->lensShiftWidth;
    return {log, clip.video.width};
}

/// The source without what shifts of the lens may take to its edges, for a path that shows no edge.
PinholeCamera withoutEdges(const PinholeCamera& source, const LensShiftTrack& shifts) {
    constexpr double kMost = 0.25;  // of the picture
    PinholeCamera inner = source;
    const int edge = static_cast<int>(
        std::ceil(std::min(shifts.largest(), kMost * std::min(source.width, source.height))));
    inner.width -= 2 * edge;
    inner.height -= 2 * edge;
    inner.readout *= static_cast<double>(inner.height) / source.height;
    return inner;
}

PinholeCamera sourceOf(const ClipInputs& clip, const ClipSettings& settings,
                       const VideoReader& video) {
    const CameraSettings& camera = settings.camera;
    const LensDistortion& lens = camera.lens.value;
    const double focal = focalLength(camera.fieldOfView.value, clip.video, lens);
    requireCovered(camera.lens.origin, lens, focal, video.contentWidth(), video.contentHeight());
    return {video.contentWidth(), video.contentHeight(), focal, camera.readoutTime.value, lens};
}

PinholeCamera outputOf(const PinholeCamera& source, const ClipSettings& settings, double crop) {
    const auto camera = settings.straightens ? straightened : cropped;
    return camera(source, settings.output.width, settings.output.height, crop);
}

/// Limits zooms to what leaves most of the margin to the path.
void limitZooms(const OfflinePlan& plan, std::vector<double>& zooms) {
    constexpr double kLargestShare = 0.25;  // of the margin
    const double scale = plan.source.focal / plan.output.focal;
    const double shown = std::max(plan.output.width * scale / plan.source.width,
                                  plan.output.height * scale / plan.source.height);
    const double lowest = 1.0 - kLargestShare * std::max(0.0, 1.0 - shown);
    for (double& zoom : zooms) zoom = std::clamp(zoom, lowest, 1.0 / lowest);
}

/// Reads the video: notes when its frames are read out, corrects the track by their features, and
/// gives the path its zooms.
void analyse(const ClipInputs& clip, double timeOffset, VideoReader& video,
             const ProgressTarget& target, OfflinePlan& plan, PathSettings& path) {
    FeatureTracker tracker(kTurnTracking);
    PictureRefinement refinement(plan.source, plan.track, plan.shifts);
    Progress progress("analysing", clip.video.expectedFrames, target);
    while (const AVFrame* frame = video.nextPlanar()) {
        throwIfInterrupted();
        const double time = timeOf(*frame, plan.rowTimes.size(), clip, video) + timeOffset;
        const double last = plan.rowTimes.empty() ? -INFINITY : plan.rowTimes.back();
        const std::vector<FeatureMotion> motions = tracker.track(*frame);
        if (std::isfinite(last) && time > last) refinement.add(last, time, motions);
        plan.rowTimes.push_back(std::max(time, last));  // a path goes forward
        progress.advance();
    }
    progress.clear();
    const bool isReadoutKnown = clip.log || plan.source.readout > 0.0;
    if (!isReadoutKnown) plan.source.readout = refinement.findReadout();
    plan.track = refinement.refined();
    path.zooms = refinement.zooms(plan.rowTimes, path.smoothing);
    limitZooms(plan, path.zooms);
    if (clip.log) return;
    plan.notes.push_back(fmt::format(
        "no motion log: following the pictures alone, with a readout of {:.1f} ms ({}); "
        "row timing is corrected well only with a log",
        1000.0 * plan.source.readout, isReadoutKnown ? "given" : "from the pictures"));
}

std::optional<Horizon> horizonOf(const ClipInputs& clip, const ClipSettings& settings,
                                 const OfflinePlan& plan) {
    if (settings.horizon == 0.0 || plan.rowTimes.empty()) return std::nullopt;
    const Horizon horizon(plan.track, gravityOf(deviceLog(clip, settings)), plan.rowTimes);
    if (horizon.isKnown()) return horizon;
    throw std::runtime_error("--horizon: the accelerometer in " + clip.files.motion +
                             " feels no lasting gravity, which tells what is level");
}

/// Says how much of the roll that was to be levelled is left.
std::string describeLevelling(const Horizon& horizon, const ClipSettings& settings,
                              const OfflinePlan& plan) {
    constexpr double kVisible = 1.0;  // degrees
    double largest = 0.0;
    size_t count = 0;
    for (size_t i = 0; i < plan.views.size(); ++i) {
        const double time = plan.source.rowTime(plan.rowTimes[i], plan.source.height / 2.0);
        const Eigen::Quaterniond wanted =
            horizon.levelled(plan.track.at(time), time, settings.horizon / 100.0);
        const double left =
            toDegrees(std::abs(horizon.rollOf(plan.views[i].orientation, time).value_or(0.0) -
                               horizon.rollOf(wanted, time).value_or(0.0)));
        largest = std::max(largest, left);
        if (left > kVisible) ++count;
    }
    const std::string text = fmt::format("horizon: {:g} % of the roll levelled", settings.horizon);
    if (count == 0) return text;
    return text + fmt::format(
                      "; the margin leaves up to {:.1f} degrees, more than {:g} in {} of {}; a "
                      "smaller --crop gives more room",
                      largest, kVisible, count, counted(plan.views.size(), "frame"));
}

std::string describeCrop(const ChosenCrop& chosen) {
    const std::string text = fmt::format("crop: {:g} % of the picture shown", chosen.crop);
    if (chosen.forcedSpeed <= kUnseenSpeed) return text + ", as much as the path leaves";
    return text + ", the least that --crop auto takes; the path would use more room";
}

std::string describeZoom(const std::vector<View>& views, int crop) {
    const auto isFarther = [](const View& a, const View& b) { return a.zoom < b.zoom; };
    const auto [farthest, nearest] = std::minmax_element(views.begin(), views.end(), isFarther);
    return fmt::format(
        "zoom: {:.1f} to {:.1f} % of the picture shown, eased by at most {:g} % a second",
        crop / nearest->zoom, crop / farthest->zoom, 100.0 * kZoomSpeed);
}

/// Finds the path with the crop and the zoom that the settings ask for, and notes what was chosen.
OptimalPath findPath(const PathTask& task, const ClipSettings& settings, OfflinePlan& plan) {
    const bool choosesCrop = settings.crop == kAutoCrop;
    ChosenCrop found = findCroppedPath(
        task, choosesCrop ? std::nullopt : std::optional<double>(settings.crop), settings.zooms);
    if (choosesCrop) {
        plan.notes.push_back(describeCrop(found));
        plan.crop = static_cast<int>(found.crop);
        plan.output = task.outputFor(plan.crop);
    }
    if (settings.zooms && !found.path.views.empty()) {
        plan.notes.push_back(describeZoom(found.path.views, plan.crop));
    }
    return std::move(found.path);
}

}  // namespace

OfflinePlan planOffline(const ClipInputs& clip, const ClipSettings& settings,
                        const ProgressTarget& progress) {
    VideoReader video(clip.files.video);
    video.acceptCutInput();
    OfflinePlan plan;
    if (settings.straightens && settings.camera.lens.value.isNone()) {
        throw std::runtime_error(
            "--straighten: no lens is known; give --lens, or a clip.json that has it");
    }
    plan.source = sourceOf(clip, settings, video);
    plan.crop = settings.crop == kAutoCrop ? kSmallestCrop : settings.crop;
    plan.output = outputOf(plan.source, settings, plan.crop / 100.0);
    plan.track = trackOf(clip, settings);
    plan.shifts = shiftsOf(clip, settings);
    if (clip.log) plan.notes = describeMotion(clip, settings);
    if (!plan.shifts.isAtRest()) {
        plan.notes.push_back(
            fmt::format("lens shifts of up to {:.1f} pixels are taken out", plan.shifts.largest()));
    }
    PathSettings pathSettings;
    pathSettings.smoothing = smoothingSeconds(settings.smoothing);
    StageClock clock;
    analyse(clip, settings.camera.timeOffset.value * settings.camera.clockFactor(), video,
            progress.part(0.0, kAnalysis), plan, pathSettings);
    plan.hdr = video.hdrMetadata();
    clock.end("analysis", plan.stageTimes);
    const std::optional<Horizon> horizon = horizonOf(clip, settings, plan);
    if (horizon) pathSettings.horizon = &*horizon;
    pathSettings.levelling = settings.horizon / 100.0;
    const auto frames = static_cast<int64_t>(plan.rowTimes.size());
    Progress solving("finding the path", frames, progress.part(kAnalysis, 1.0));
    const auto outputFor = [&](double crop) {
        return outputOf(plan.source, settings, crop / 100.0);
    };
    const auto onProgress = [&](double share) {
        throwIfInterrupted();
        solving.reach(static_cast<int64_t>(share * static_cast<double>(frames)));
    };
    const PinholeCamera inner = withoutEdges(plan.source, plan.shifts);
    OptimalPath path = findPath(
        {plan.track, plan.rowTimes, inner, pathSettings, outputFor, onProgress}, settings, plan);
    solving.clear();
    clock.end("path", plan.stageTimes);
    plan.views = std::move(path.views);
    plan.marginUsed = std::move(path.shareUsed);
    plan.notes.push_back(fmt::format("smoothing {}: follows motion slower than about {:.2g} s",
                                     settings.smoothing, pathSettings.smoothing));
    if (settings.straightens) {
        plan.notes.push_back(
            fmt::format("straightened: {:.1f} degrees across the width",
                        toDegrees(2.0 * std::atan(plan.output.width / 2.0 / plan.output.focal))));
    }
    if (horizon) plan.notes.push_back(describeLevelling(*horizon, settings, plan));
    return plan;
}

}  // namespace framehold
