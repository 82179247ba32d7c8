#pragma once

#include "motion/axis_mapping.h"

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace framehold {

/// One reading of a motion sensor.
struct MotionSample {
    double time;  // seconds
    Vec3 value;   // angular rate in rad/s; or gravity in m/s^2, pointing up at rest
};

/// One reading of an orientation sensor: the rotation from the logged axes to a world whose
/// vertical is (0, 0, 1), as a unit quaternion.
struct OrientationSample {
    double time;  // seconds
    double w;
    double x;
    double y;
    double z;
};

/// Samples per second on average; 0 if there are fewer than two.
double samplesPerSecond(const std::vector<MotionSample>& samples);
double samplesPerSecond(const std::vector<OrientationSample>& samples);

/// The length of the middle one of the samples' values, by length.
double medianLength(const std::vector<MotionSample>& samples);

/// Averages neighbouring samples until at most `rate` samples per second are left. A sample stands
/// for the time since the one before it, so that no rotation is lost.
std::vector<MotionSample> thinned(const std::vector<MotionSample>& samples, double rate);

/// Leaves samples out until at most `rate` samples per second are left.
std::vector<OrientationSample> thinned(const std::vector<OrientationSample>& samples, double rate);

/// How many samples of each kind came after a later one in the file.
struct OutOfOrder {
    size_t rates = 0;
    size_t gravity = 0;
    size_t orientations = 0;
};

/// A motion log, samples in order of time, in the logged axes until `toDeviceAxes`.
struct MotionLog {
    std::string format;      // with its version, if it has one: "gcsv 1.3"
    std::string detectedBy;  // what in the file shows the format
    std::vector<std::string> files;
    std::vector<std::pair<std::string, std::string>>
        headers;                     // metadata of the log, as they are said
    std::vector<std::string> notes;  // what had to be assumed or was left out, for the user

    std::vector<MotionSample> rates;
    std::vector<MotionSample> gravity;            // empty if not logged
    std::vector<OrientationSample> orientations;  // empty if not logged
    OutOfOrder outOfOrder;
    AxisMapping orientation;            // from logged to device axes, as the log says
    std::optional<double> readoutTime;  // seconds, if the log says

    /// Puts the samples in order of time and counts those that were not.
    void sortByTime();

    /// The logged angular rates; where there are none, those between the logged orientations, each
    /// at the time of the later one. In rad/s about the logged axes.
    std::vector<MotionSample> angularRates() const;

    /// Throws std::invalid_argument if orientations are to be mirrored: `mapping` must be a
    /// rotation then.
    void toDeviceAxes(const AxisMapping& mapping);

    /// Multiplies all times, to take out that the log's clock runs at another speed.
    void stretch(double factor);
};

}  // namespace framehold
