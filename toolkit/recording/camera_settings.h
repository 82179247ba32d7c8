#pragma once

#include "recording/clip_inputs.h"

#include <optional>
#include <string>

namespace framehold {

/// Where the value of a setting comes from, in order of precedence.
enum class Source {
    kOption,
    kMetadata,  // the clip.json
    kFound,     // a calibration with the clip itself
    kLog,
    kDefault,
};

/// A value, and where it comes from.
template <class T>
struct Setting {
    T value{};
    Source source = Source::kDefault;
    std::string origin;  // for the user: the option, the file, ...

    /// Takes the value of an option, if there is one. name: of the option.
    void prefer(const std::optional<T>& option, const char* name) {
        if (option) *this = {*option, Source::kOption, name};
    }
};

/// Degrees across a side or, for ZPR_FOV_FOCAL_LENGTH, pixels of focal length.
struct FieldOfView {
    double size = 0.0;
    int mode = 0;  // ZPR_FOV_...
};

/// A camera and its clock.
struct CameraSettings {
    Setting<FieldOfView> fieldOfView;
    Setting<LensDistortion> lens;
    Setting<double> readoutTime;  // seconds
    Setting<double> timeOffset;   // seconds, added to a frame's timestamp
    Setting<double> clockDrift;   // seconds that the log's clock gains per second
    Setting<AxisMapping> axes;    // from logged to device axes
    Setting<double> exposure;     // seconds, half of which is in the frames' times; 0: not known

    /// Seconds of the frames' clock in a second of the log's.
    double clockFactor() const { return 1.0 / (1.0 + clockDrift.value); }
};

/// Takes each setting from the first source that has it, options aside. found: by a calibration with
/// the clip.
CameraSettings knownCamera(const ClipInputs& clip, const ClipMetadata& found = {});

/// Focal length in pixels, in the middle of the picture, of a camera whose frames have this size. A
/// field of view is that which the lens shows.
double focalLength(const FieldOfView& view, const VideoProperties& video,
                   const LensDistortion& lens = {});

}  // namespace framehold
