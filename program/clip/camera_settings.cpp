#include "clip/camera_settings.h"

#include "common/angles.h"
#include "common/text_fields.h"
#include "zpr_framehold.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace framehold {

namespace {

// In the order of their modes, ZPR_FOV_WIDTH and on.
constexpr const char* kSides[] = {"width", "height", "diagonal"};

/// The values that the sources have of one setting.
template <class T>
struct Candidates {
    const char* optionName = "";
    std::optional<T> option;
    std::optional<T> metadata;
    std::optional<T> found;
    std::optional<T> frames;  // what is logged of each frame
    std::optional<T> log;
};

/// The order of precedence of all settings.
template <class T>
Setting<T> firstOf(const Candidates<T>& from, const T& otherwise, const ClipInputs& clip) {
    if (from.option) return {*from.option, Source::kOption, from.optionName};
    if (from.metadata) return {*from.metadata, Source::kMetadata, clip.files.metadata};
    if (from.found) return {*from.found, Source::kFound, "found in the clip"};
    if (from.frames) return {*from.frames, Source::kLog, clip.usualFrameFile};
    if (from.log) return {*from.log, Source::kLog, clip.files.motion};
    return {otherwise, Source::kDefault, "default"};
}

std::optional<FieldOfView> inPixels(const std::optional<double>& focalLength, double scale = 1.0) {
    if (!focalLength) return std::nullopt;
    return FieldOfView{*focalLength * scale, ZPR_FOV_FOCAL_LENGTH};
}

int modeOf(const std::string& side) {
    const auto* found = std::find(std::begin(kSides), std::end(kSides), side);
    return ZPR_FOV_WIDTH + static_cast<int>(found - kSides);
}

Candidates<FieldOfView> fieldsOfView(const CameraOptions& options, const ClipInputs& clip,
                                     const ClipMetadata& found) {
    // Metadata is that of the clip's own size; the video may have been scaled since.
    const auto& width = clip.metadata.width;
    const double scale = width ? static_cast<double>(clip.video.width) / *width : 1.0;
    Candidates<FieldOfView> from;
    from.optionName = options.focalLength ? "--focal" : "--fov";
    from.option = inPixels(options.focalLength);
    if (!from.option && options.fieldOfView) {
        from.option = {*options.fieldOfView, modeOf(options.fieldOfViewAcross)};
    }
    from.metadata = inPixels(clip.metadata.focalLength, scale);
    from.found = inPixels(found.focalLength);
    const FrameMetadata& usual = clip.usualFrame;
    from.frames = inPixels(usual.focalLength, usual.width ? clip.video.width / *usual.width : 1.0);
    return from;
}

}  // namespace

const char* sideOf(int fieldOfViewMode) { return kSides[fieldOfViewMode - ZPR_FOV_WIDTH]; }

CameraSettings resolveCamera(const CameraOptions& options, const ClipInputs& clip,
                             const ClipMetadata& found) {
    const ClipMetadata& metadata = clip.metadata;
    std::optional<AxisMapping> axes;
    if (options.axes) axes = AxisMapping::fromLetters(*options.axes);
    std::optional<AxisMapping> loggedAxes;
    std::optional<double> loggedReadout;
    if (clip.log) {
        loggedAxes = clip.log->orientation;
        loggedReadout = clip.log->readoutTime;
    }
    ZPR_Param defaults{};
    ZPR_GetDefaultParam(&defaults);

    CameraSettings camera;
    camera.fieldOfView = firstOf(fieldsOfView(options, clip, found),
                                 FieldOfView{defaults.fieldOfView, defaults.fieldOfViewMode}, clip);
    camera.lens = firstOf({"--lens", options.lens.lens(), metadata.lens, found.lens, {}, {}},
                          LensDistortion(), clip);
    camera.readoutTime = firstOf({"--readout", options.readoutTime, metadata.readoutTime,
                                  found.readoutTime, clip.usualFrame.readout, loggedReadout},
                                 defaults.readoutTime, clip);
    // Not the library's default, which is that of a phone's live camera.
    camera.timeOffset = firstOf(
        {"--time-offset", options.timeOffset, metadata.timeOffset, found.timeOffset, {}, {}}, 0.0,
        clip);
    camera.clockDrift = firstOf({"", {}, metadata.clockDrift, found.clockDrift, {}, {}}, 0.0, clip);
    camera.axes =
        firstOf({"--axes", axes, metadata.axes, found.axes, {}, loggedAxes}, AxisMapping(), clip);
    camera.exposure = firstOf({"", {}, {}, {}, clip.usualFrame.exposure, {}}, 0.0, clip);
    return camera;
}

double focalLength(const FieldOfView& view, const VideoProperties& video,
                   const LensDistortion& lens) {
    if (view.mode == ZPR_FOV_FOCAL_LENGTH) return view.size;
    double side = video.width;
    if (view.mode == ZPR_FOV_HEIGHT) side = video.height;
    if (view.mode == ZPR_FOV_DIAGONAL) side = std::hypot(video.width, video.height);
    return side / 2.0 / lens.at(toRadians(view.size / 2.0)).radius;
}

std::vector<std::string> describe(const CameraSettings& camera) {
    std::vector<std::string> notes;
    const auto& view = camera.fieldOfView;
    if (view.value.mode == ZPR_FOV_FOCAL_LENGTH) {
        notes.push_back(
            fmt::format("focal length {:.1f} pixels ({})", view.value.size, view.origin));
    } else if (view.source != Source::kDefault) {
        notes.push_back(fmt::format("field of view {:.1f} degrees across the {} ({})",
                                    view.value.size, sideOf(view.value.mode), view.origin));
    }
    if (!camera.lens.value.isNone()) {
        notes.push_back(
            fmt::format("lens {} ({})", describe(camera.lens.value), camera.lens.origin));
    }
    notes.push_back(fmt::format("readout {:.1f} ms ({}), time offset {} ({})",
                                1000.0 * camera.readoutTime.value, camera.readoutTime.origin,
                                durationText(camera.timeOffset.value), camera.timeOffset.origin));
    if (camera.exposure.value > 0.0) {
        notes.push_back(fmt::format(
            "exposure {:.1f} ms: times of frames are those of its middle, for the first row ({})",
            1000.0 * camera.exposure.value, camera.exposure.origin));
    }
    if (camera.clockDrift.value != 0.0) {
        notes.push_back(fmt::format("clock drift {:.0f} millionths taken out of the log ({})",
                                    1e6 * camera.clockDrift.value, camera.clockDrift.origin));
    }
    return notes;
}

}  // namespace framehold
