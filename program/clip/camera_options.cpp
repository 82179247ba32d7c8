#include "clip/camera_options.h"

#include "common/text_fields.h"
#include "zpr_framehold.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>

namespace framehold {

namespace {

// In the order of their modes, ZPR_FOV_WIDTH and on.
constexpr const char* kSides[] = {"width", "height", "diagonal"};

int modeOf(const std::string& side) {
    const auto* found = std::find(std::begin(kSides), std::end(kSides), side);
    return ZPR_FOV_WIDTH + static_cast<int>(found - kSides);
}

}  // namespace

const char* sideOf(int fieldOfViewMode) { return kSides[fieldOfViewMode - ZPR_FOV_WIDTH]; }

CameraSettings resolveCamera(const CameraOptions& options, const ClipInputs& clip,
                             const ClipMetadata& found) {
    std::optional<FieldOfView> view;
    if (options.fieldOfView) view = {*options.fieldOfView, modeOf(options.fieldOfViewAcross)};
    if (options.focalLength) view = {*options.focalLength, ZPR_FOV_FOCAL_LENGTH};
    std::optional<AxisMapping> axes;
    if (options.axes) axes = AxisMapping::fromLetters(*options.axes);

    CameraSettings camera = knownCamera(clip, found);
    camera.fieldOfView.prefer(view, options.focalLength ? "--focal" : "--fov");
    camera.lens.prefer(options.lens.lens(), "--lens");
    camera.readoutTime.prefer(options.readoutTime, "--readout");
    camera.timeOffset.prefer(options.timeOffset, "--time-offset");
    camera.axes.prefer(axes, "--axes");
    return camera;
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
