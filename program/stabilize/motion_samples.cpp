#include "stabilize/motion_samples.h"

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

namespace {

/// Averages or leaves out what the library cannot hold.
template <class Sample>
void thin(std::vector<Sample>& samples, const char* how, const ClipSettings& settings,
          std::vector<std::string>& notes) {
    if (samplesPerSecond(samples) <= settings.largestSampleRate) return;
    samples = thinned(samples, settings.largestSampleRate);
    notes.push_back(
        fmt::format("{} to {:.0f} samples per second, as many as the library holds with --delay {}",
                    how, samplesPerSecond(samples), settings.delay));
}

/// The mean of the first second.
Vec3 initialGravity(const std::vector<MotionSample>& gravity) {
    Vec3 sum{};
    double count = 0.0;
    for (const MotionSample& sample : gravity) {
        if (sample.time > gravity.front().time + 1.0) break;
        for (size_t axis = 0; axis < 3; ++axis) sum[axis] += sample.value[axis];
        count += 1.0;
    }
    for (double& v : sum) v /= count;
    return sum;
}

/// The gravity samples to feed, the first one no later than the first rate.
std::vector<MotionSample> gravityOf(const MotionLog& log, const ClipSettings& settings,
                                    std::vector<std::string>& notes) {
    const double start = log.rates.front().time;
    if (settings.gravity) {
        const auto& [g, source, origin] = *settings.gravity;
        notes.push_back(
            fmt::format("one made-up gravity sample, {:g},{:g},{:g} m/s^2 in device axes ({})",
                        g[0], g[1], g[2], origin));
        return {{start, g}};
    }
    std::vector<MotionSample> gravity = {{start, initialGravity(log.gravity)}};
    if (settings.gravityRate > 0.0) {
        const auto later = thinned(log.gravity, settings.gravityRate);
        gravity.insert(gravity.end(), later.begin() + 1, later.end());
    }
    return gravity;
}

/// Puts gravity and rates in order of time.
std::vector<ZPR_SensorData> samplesOf(const std::vector<MotionSample>& gravity,
                                      const std::vector<MotionSample>& rates,
                                      const ClipSettings& settings) {
    std::vector<ZPR_SensorData> samples;
    const auto add = [&](int type, const MotionSample& s) {
        samples.push_back({type, s.time, {s.value[0], s.value[1], s.value[2], 0.0}});
    };
    auto next = gravity.begin();
    for (const MotionSample& rate : rates) {
        while (next != gravity.end() && next->time <= rate.time) {
            add(settings.gravityType, *next++);
        }
        add(settings.motionType, rate);
    }
    return samples;
}

std::vector<ZPR_SensorData> samplesOf(const std::vector<OrientationSample>& orientations,
                                      int type) {
    std::vector<ZPR_SensorData> samples;
    for (const OrientationSample& s : orientations) {
        samples.push_back({type, s.time, {s.x, s.y, s.z, s.w}});
    }
    return samples;
}

}  // namespace

MotionSamples prepareMotion(const ClipInputs& clip, const ClipSettings& settings) {
    MotionLog log = *clip.log;
    log.stretch(settings.clockFactor());
    MotionSamples motion{{}, describeMotion(clip, settings)};
    log.toDeviceAxes(settings.camera.axes.value);
    if (settings.feedsOrientations()) {
        thin(log.orientations, "thinned", settings, motion.notes);
        motion.samples = samplesOf(log.orientations, settings.motionType);
        return motion;
    }
    thin(log.rates, "averaged", settings, motion.notes);
    motion.samples = samplesOf(gravityOf(log, settings, motion.notes), log.rates, settings);
    return motion;
}

}  // namespace framehold
