#include "recording/camera_settings.h"

#include "common/angles.h"
#include "zpr_framehold.h"

#include <cmath>

namespace framehold {

namespace {

/// The values that the sources have of one setting.
template <class T>
struct Candidates {
    std::optional<T> metadata;
    std::optional<T> found;
    std::optional<T> frames;  // what is logged of each frame
    std::optional<T> log;
};

/// The order of precedence of all settings.
template <class T>
Setting<T> firstOf(const Candidates<T>& from, const T& otherwise, const ClipInputs& clip) {
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

Candidates<FieldOfView> fieldsOfView(const ClipInputs& clip, const ClipMetadata& found) {
    // Metadata is that of the clip's own size; the video may have been scaled since.
    const auto& width = clip.metadata.width;
    const double scale = width ? static_cast<double>(clip.video.width) / *width : 1.0;
    Candidates<FieldOfView> from;
    from.metadata = inPixels(clip.metadata.focalLength, scale);
    from.found = inPixels(found.focalLength);
    const FrameMetadata& usual = clip.usualFrame;
    from.frames = inPixels(usual.focalLength, usual.width ? clip.video.width / *usual.width : 1.0);
    return from;
}

}  // namespace

CameraSettings knownCamera(const ClipInputs& clip, const ClipMetadata& found) {
    const ClipMetadata& metadata = clip.metadata;
    std::optional<AxisMapping> loggedAxes;
    std::optional<double> loggedReadout;
    if (clip.log) {
        loggedAxes = clip.log->orientation;
        loggedReadout = clip.log->readoutTime;
    }
    ZPR_Param defaults{};
    ZPR_GetDefaultParam(&defaults);

    CameraSettings camera;
    camera.fieldOfView = firstOf(fieldsOfView(clip, found),
                                 FieldOfView{defaults.fieldOfView, defaults.fieldOfViewMode}, clip);
    camera.lens = firstOf({metadata.lens, found.lens, {}, {}}, LensDistortion(), clip);
    camera.readoutTime =
        firstOf({metadata.readoutTime, found.readoutTime, clip.usualFrame.readout, loggedReadout},
                defaults.readoutTime, clip);
    // Not the library's default, which is that of a phone's live camera.
    camera.timeOffset = firstOf({metadata.timeOffset, found.timeOffset, {}, {}}, 0.0, clip);
    camera.clockDrift = firstOf({metadata.clockDrift, found.clockDrift, {}, {}}, 0.0, clip);
    camera.axes = firstOf({metadata.axes, found.axes, {}, loggedAxes}, AxisMapping(), clip);
    camera.exposure = firstOf({{}, {}, clip.usualFrame.exposure, {}}, 0.0, clip);
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

}  // namespace framehold
