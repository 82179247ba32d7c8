#pragma once

#include "gstreamer/element_settings.h"
#include "recording/camera_settings.h"
#include "zpr_framehold.h"

#include <string>
#include <vector>

namespace framehold {

/// Gravity of a camera that is held level, in device axes, where it is not known.
constexpr Vec3 kPictureTop{9.81, 0.0, 0.0};  // m/s^2

/// Reads the clip-file and the motion-file and, for a video, what is in it and beside it: as the
/// program does. video: path, or empty. Without a log samples come live.
/// Throws std::runtime_error with the name of the property.
ClipInputs loadClip(const ElementSettings& settings, const std::string& video);

/// Properties of the frames of a stream.
struct StreamProperties {
    int width = 0;  // pixels
    int height = 0;
    int outputWidth = 0;
    int outputHeight = 0;
    double framesPerSecond = 30.0;

    bool keepsSize() const { return outputWidth == width && outputHeight == height; }
    /// Width of the frames that the library gets and gives back. It stretches the last columns of
    /// one that is no multiple of its blocks.
    int paddedWidth() const;
};

/// Parameters of the library for a stream, without a sensor mask that is not set. clip: `video` is
/// that of the stream.
/// Throws std::runtime_error with the name and the range of the property.
ZPR_Param libraryParam(const ElementSettings& settings, const ClipInputs& clip,
                       const StreamProperties& stream);

/// Warnings about the parameters, for the user.
std::vector<std::string> parameterWarnings(const ElementSettings& settings, const ClipInputs& clip,
                                           const StreamProperties& stream);

/// Axes of live samples. Throws std::runtime_error.
AxisMapping axesOf(const ElementSettings& settings, const ClipInputs& clip);

/// Samples of the clip's log as the library takes them; sets the parameters' sensor mask.
/// Throws std::runtime_error.
std::vector<ZPR_SensorData> logSamples(const ElementSettings& settings, const ClipInputs& clip,
                                       double framesPerSecond, ZPR_Param& param);

/// Brings a live sample to the axes of the device. Throws std::runtime_error with the name of the
/// property for an orientation that the axes mirror.
void toDeviceAxes(const AxisMapping& axes, ZPR_SensorData& sample);

}  // namespace framehold
