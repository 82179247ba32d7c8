#pragma once

#include "motion/motion_log.h"
#include "zpr_framehold.h"

#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Types of samples that the library is fed, ZPR_SENSOR_...
struct SensorTypes {
    int mask = 0;     // all that are enabled
    int motion = 0;   // of rates or orientations, whatever is fed
    int gravity = 0;  // 0 with orientations, which do without

    bool areOrientations() const { return motion != 0 && gravity == 0; }
};

/// Chooses types: orientations where a log has no rates, or where the mask asks for them.
/// mask: enabled types; none: those that are needed. name: of what the user set the mask with.
/// Throws std::runtime_error for a mask that enables too few.
SensorTypes chooseSensors(const std::optional<int>& mask, const std::string& name,
                          const MotionLog& log);

/// Samples per second that an instance can hold without losing one it needs.
double largestSampleRate(int delayFrames, double framesPerSecond, double readoutTime);

/// Averages rates, or leaves out orientations, until there are at most `largest` per second.
/// Returns how many are left if there were more.
std::optional<double> limitRate(MotionLog& log, const SensorTypes& types, double largest);

/// The samples of a log in device axes, as the library takes them: in order of time, gravity first.
/// gravity: one sample in place of those of the log. gravityRate: logged ones per second after the
/// first, which is the mean of the first second.
std::vector<ZPR_SensorData> sensorSamples(const MotionLog& log, const SensorTypes& types,
                                          const std::optional<Vec3>& gravity, double gravityRate);

}  // namespace framehold
