#pragma once

#include "motion/axis_mapping.h"
#include "motion/frame_metadata.h"

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace framehold {

/// Reading of a gyroscope or an accelerometer.
struct MotionSample {
    double time;  // seconds
    Vec3 value;   // angular rate in rad/s; or gravity in m/s^2, which points up at rest
};

/// Reading of an orientation sensor: the rotation from the logged axes to a world whose vertical is
/// (0, 0, 1), as a unit quaternion.
struct OrientationSample {
    double time;  // seconds
    double w;
    double x;
    double y;
    double z;
};

/// Shift of the picture by a lens that moves against shake: how far the principal point lies from where
/// it is with the lens at rest, in pixels of the sensor's active array, to the right and down.
struct LensShift {
    double time;  // seconds
    double x;
    double y;
};

/// Largest shift along either axis, in its pixels.
double largestShift(const std::vector<LensShift>& shifts);

/// Samples per second on average; 0 if there are fewer than two.
double samplesPerSecond(const std::vector<MotionSample>& samples);
double samplesPerSecond(const std::vector<OrientationSample>& samples);

/// Median of the lengths of the samples' values, in their unit; 0 if there are none.
double medianLength(const std::vector<MotionSample>& samples);

/// Averages neighbouring samples until at most about `rate` samples per second are left. A sample
/// is weighted by the time since the one before it, so that no rotation is lost.
std::vector<MotionSample> thinned(const std::vector<MotionSample>& samples, double rate);

/// Leaves samples out until at most about `rate` samples per second are left.
std::vector<OrientationSample> thinned(const std::vector<OrientationSample>& samples, double rate);

/// Leaves out samples that repeat the one before them, if an app has read the sensor more often than
/// it measures: nearly all values are there about as many times, on average up to 20 times. Other
/// samples that are equal stay. Returns how many times each value was there; none if all samples
/// stay. samples: in order of time.
std::optional<double> dropRepeats(std::vector<MotionSample>& samples);

/// Number of samples of each kind that came after a later one in the file.
struct OutOfOrder {
    size_t rates = 0;
    size_t gravity = 0;
    size_t orientations = 0;
};

/// Motion log. Samples are in order of time, and in the logged axes until `toDeviceAxes`; lens shifts
/// are in those of the picture always.
struct MotionLog {
    std::string format;              // with its version, if it has one: "gcsv 1.3"
    std::string detectedBy;          // the part of the file that shows the format, for the user
    std::vector<std::string> files;  // that it was read from
    std::vector<std::pair<std::string, std::string>> headers;  // keys and values as they are there
    std::vector<std::string> notes;  // assumptions, and what was left out, for the user

    std::vector<MotionSample> rates;
    std::vector<MotionSample> gravity;            // empty if not logged
    std::vector<OrientationSample> orientations;  // empty if not logged
    std::vector<LensShift> lensShifts;            // empty if not logged
    double lensShiftWidth = 0.0;        // pixels of the active array, across; 0 if not known
    std::vector<FrameMetadata> frames;  // of the video, in its order; empty if not logged
    OutOfOrder outOfOrder;
    AxisMapping orientation;            // from logged to device axes, by the log
    std::optional<double> readoutTime;  // seconds, if the log has it

    /// Puts the samples in order of time and counts those that were not.
    void sortByTime();

    /// Angular rates in rad/s: the logged ones; where there are none, those between the logged
    /// orientations, each at the time of the later one.
    std::vector<MotionSample> angularRates() const;

    /// Brings all samples to the axes of the device. Throws std::invalid_argument if there are
    /// orientations and `mapping` mirrors.
    void toDeviceAxes(const AxisMapping& mapping);

    /// Multiplies all times, those of frames too, to correct a clock that runs at another speed.
    void stretch(double factor);
};

}  // namespace framehold
