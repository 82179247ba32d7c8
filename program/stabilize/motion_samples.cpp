#include "stabilize/motion_samples.h"

#include "motion/sensor_samples.h"

#include <optional>

#include <fmt/format.h>

namespace framehold {

std::vector<std::string> describeMotion(const ClipInputs& clip, const ClipSettings& settings) {
    const MotionLog& log = *clip.log;
    const bool orientations = settings.feedsOrientations();
    const Setting<AxisMapping>& axes = settings.camera.axes;
    std::vector<std::string> notes = {
        fmt::format("{}: {}, {} {} at {:.0f} Hz, axes {} ({})", fmt::join(log.files, " and "),
                    log.format, orientations ? log.orientations.size() : log.rates.size(),
                    orientations ? "orientations" : "samples",
                    orientations ? samplesPerSecond(log.orientations) : samplesPerSecond(log.rates),
                    axes.value.letters(), axes.origin)};
    for (const std::string& note : log.notes) notes.push_back(clip.files.motion + ": " + note);
    return notes;
}

MotionSamples prepareMotion(const ClipInputs& clip, const ClipSettings& settings) {
    MotionLog log = *clip.log;
    log.stretch(settings.camera.clockFactor());
    MotionSamples motion{{}, describeMotion(clip, settings)};
    log.toDeviceAxes(settings.camera.axes.value);
    const SensorTypes types{settings.sensorMask, settings.motionType, settings.gravityType};
    if (const auto rate = limitRate(log, types, settings.largestSampleRate)) {
        motion.notes.push_back(fmt::format(
            "{} to {:.0f} samples per second, as many as the library holds with --delay {}",
            types.areOrientations() ? "thinned" : "averaged", *rate, settings.delay));
    }
    std::optional<Vec3> gravity;
    if (settings.gravity && !types.areOrientations()) {
        gravity = settings.gravity->value;
        motion.notes.push_back(
            fmt::format("one made-up gravity sample, {:g},{:g},{:g} m/s^2 in device axes ({})",
                        (*gravity)[0], (*gravity)[1], (*gravity)[2], settings.gravity->origin));
    }
    motion.samples = sensorSamples(log, types, gravity, settings.gravityRate);
    return motion;
}

}  // namespace framehold
