#pragma once

#include "draw.h"
#include "motion/motion_log.h"

#include <cmath>
#include <stdexcept>
#include <vector>

namespace zpr_fuzz {

/// Requires of samples that they are finite and in order of time.
inline void requireGood(const std::vector<framehold::MotionSample>& samples) {
    for (size_t i = 0; i < samples.size(); ++i) {
        const auto& [time, value] = samples[i];
        require(std::isfinite(time) && std::isfinite(value[0]) && std::isfinite(value[1]) &&
                    std::isfinite(value[2]),
                "samples are finite");
        require(i == 0 || samples[i - 1].time <= time, "samples are in order");
    }
}

inline void requireGood(const std::vector<framehold::OrientationSample>& samples) {
    for (size_t i = 0; i < samples.size(); ++i) {
        const auto& [time, w, x, y, z] = samples[i];
        const double length = std::sqrt(w * w + x * x + y * y + z * z);
        require(std::isfinite(time) && std::fabs(length - 1.0) < 1e-6, "orientations are unit");
        require(i == 0 || samples[i - 1].time <= time, "orientations are in order");
    }
}

inline void requireGood(const std::vector<framehold::LensShift>& shifts) {
    for (size_t i = 0; i < shifts.size(); ++i) {
        const auto& [time, x, y] = shifts[i];
        require(std::isfinite(time) && std::isfinite(x) && std::isfinite(y),
                "lens shifts are finite");
        require(i == 0 || shifts[i - 1].time <= time, "lens shifts are in order");
    }
}

inline void requireGood(const framehold::FrameMetadata& frame) {
    for (const auto& length : {frame.exposure, frame.readout, frame.focalLength, frame.width}) {
        require(!length || (std::isfinite(*length) && *length >= 0.0),
                "metadata of frames are finite and not negative");
    }
    require(!frame.time || std::isfinite(*frame.time), "times of frames are finite");
}

inline void requireGood(const framehold::MotionLog& log) {
    requireGood(log.rates);
    requireGood(log.gravity);
    requireGood(log.orientations);
    requireGood(log.lensShifts);
    for (const auto& frame : log.frames) requireGood(frame);
    require(!log.readoutTime || (std::isfinite(*log.readoutTime) && *log.readoutTime >= 0.0),
            "a readout time is a time");
}

/// Requires what a reader promises of its log, and does with it what the program does.
inline void useLog(framehold::MotionLog log) {
    constexpr double kRate = 200.0;
    requireGood(log);
    try {
        log.toDeviceAxes(log.orientation);
    } catch (const std::invalid_argument&) {
        require(!log.orientations.empty(), "vectors can be mirrored");
        return;
    }
    log.rates = thinned(log.rates, kRate);
    log.gravity = thinned(log.gravity, kRate);
    log.orientations = thinned(log.orientations, kRate);
    requireGood(log);
}

}  // namespace zpr_fuzz
