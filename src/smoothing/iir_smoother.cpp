#include "smoothing/iir_smoother.h"

#include <algorithm>
#include <cmath>

namespace qlx::zpr_framehold {

namespace {

Quaternion identity() { return {1.0, 0.0, 0.0, 0.0}; }
Quaternion zero() { return {0.0, 0.0, 0.0, 0.0}; }

}  // namespace

IIRSmoother::IIRSmoother(const ZPR_Param* params, SensorHub* hub)
    : Smoother(params, hub), smoothed_(identity()), lastStep_(identity()) {
    IIRSmoother::updateParams(*params);
}

void IIRSmoother::updateParams(const ZPR_Param& params) {
    const int32_t level = params.smoothingLevel;
    alpha_ = level < 1 ? 0.8 : 0.8 + (std::min(level, 10) - 1) * 0.019999999999999993;
}

void IIRSmoother::reset() {
    started_ = false;
    Smoother::reset();
}

bool IIRSmoother::primeStep() {
    if (!started_) lastStep_ = identity();
    return true;
}

void IIRSmoother::takeFrame(double t) {
    Quaternion measured = zero();
    queryOrientation(t, measured);
    ringEntry(writeCount_) = {measured, t};
    ++writeCount_;
}

bool IIRSmoother::smoothFrame(double t, FrameCorrection* out) {
    limitCounts();
    if (t >= 0.0) takeFrame(t);
    if (out == nullptr) return true;

    const RingEntry frame = ringEntry(readCount_);
    ++readCount_;
    if (frame.orientation == zero()) return false;
    if (!started_) {
        smoothed_ = frame.orientation;
        stillCount_ = 0;
        started_ = true;
    }
    const Quaternion previous = smoothed_;
    catchUpWhenStill(frame.orientation, frame.time);
    smoothed_ = slerp(frame.orientation, smoothed_, alpha_);
    const RowTiming timing = rowTiming(frame.time);
    cropLimit_.pullIntoCrop(smoothed_, timing);
    const bool isRolling = lookAhead(timing);
    fillCorrection(smoothed_, timing, isRolling, *out);
    lastStep_ = previous.inverse() * smoothed_;
    return true;
}

/// Repeats the virtual camera's last movement once the device has been still for five frames while
/// the virtual camera was off its orientation.
void IIRSmoother::catchUpWhenStill(const Quaternion& measured, double t) {
    constexpr double kMaxMotion = 0.001;  // half angles in radians
    constexpr double kMinDeviation = 0.0025;
    constexpr int32_t kStillFrames = 5;

    Quaternion before;
    const bool isKnown = queryOrientation(t - framePeriod_, before);
    const Quaternion motion = isKnown ? before.inverse() * measured : identity();
    const double motionAngle = std::acos(motion.w);
    const double deviation = std::acos((smoothed_.inverse() * measured).w);
    const bool isStill = motionAngle < kMaxMotion && deviation > kMinDeviation;
    stillCount_ = isStill ? std::min(stillCount_ + 1, kStillFrames) : 0;
    // Deliberate: the interpolation towards all zeros scales the step by sin(0.35 pi), and the
    // product is not renormalised.
    if (stillCount_ == kStillFrames) smoothed_ *= slerp(lastStep_, zero(), 0.3);
}

/// Continues the filter over the coming frames. A violation of the crop i frames ahead pulls the
/// virtual orientation toward the one corrected there by the weight 1 / (i + 1). Returns true if
/// the last crop test timed rows one by one, false if all at once.
bool IIRSmoother::lookAhead(const RowTiming& timing) {
    constexpr uint64_t kFramesBeyondRing = 60;

    const uint32_t ring = frameRing_.size();
    const uint32_t waiting = std::min(writeCount_ - readCount_, ring);
    Quaternion probe = smoothed_;
    bool isRolling = timing.isRolling;
    for (uint64_t i = 1; i <= waiting + kFramesBeyondRing; ++i) {
        // Deliberate: beyond the waiting frames, times count from the entry after the last of
        // them, which in a full ring is the frame being output.
        const double time = i < waiting ? ringEntry(readCount_ + static_cast<uint32_t>(i)).time
                                        : static_cast<double>(i - waiting) * framePeriod_ +
                                              ringEntry(readCount_ + waiting).time;
        const RowTiming coming = rowTiming(time);
        if (!coming.isRolling) break;
        // Deliberate: the frame's own rows are then timed one by one, too, even if sensor data does
        // not reach the end of its readout, which takes frames out of order.
        isRolling = true;
        Quaternion measured = identity();
        queryOrientation(time, measured);
        probe = slerp(measured, probe, alpha_);
        if (cropLimit_.pullIntoCrop(probe, coming)) {
            smoothed_ = slerp(smoothed_, probe, 1.0 / static_cast<double>(i + 1));
            cropLimit_.pullIntoCrop(smoothed_, timing);
            return timing.isRolling;
        }
    }
    return isRolling;
}

}  // namespace qlx::zpr_framehold
