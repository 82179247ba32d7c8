#pragma once

#include "motion/axis_mapping.h"

#include <cstddef>
#include <optional>
#include <string>
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

/// Averages neighbouring samples until at most `rate` samples per second are left. A sample stands
/// for the time since the one before it, so that no rotation is lost.
std::vector<MotionSample> thinned(const std::vector<MotionSample>& samples, double rate);

/// A motion log, samples in order of time, in the logged axes until `toDeviceAxes`.
struct MotionLog {
    std::vector<MotionSample> rates;
    std::vector<MotionSample> gravity;            // empty if not logged
    std::vector<OrientationSample> orientations;  // empty if not logged
    size_t outOfOrder = 0;                        // samples that came after a later one in the file
    AxisMapping orientation;                      // from logged to device axes, as the log says
    std::optional<double> readoutTime;            // seconds, if the log says

    void toDeviceAxes(const AxisMapping& mapping);
};

}  // namespace framehold
