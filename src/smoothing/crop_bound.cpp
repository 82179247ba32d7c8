#include "smoothing/crop_bound.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qlx::zpr_framehold {

namespace {

// What each constant is for, and why it has its value: docs/crop-bound.md.

// Of the view.
constexpr double kKeptFree = 1.0;     // input pixels
constexpr double kMaxMargin = 700.0;  // input pixels
constexpr double kMaxScale = 2.0;     // output pixels per input pixel
constexpr double kMaxHalfView = 2.0;  // focal lengths

// Of the rotation.
constexpr double kMaxDistance = 0.1;  // of neighbouring records, as quaternions
constexpr double kEntryFactor = 2.02;
constexpr double kMotionFactor = 3.5;

// Of the iteration.
constexpr double kMaxStretch = 0.05;
constexpr double kMaxShear = 0.1;
constexpr double kMaxRowMotion = 0.18;  // input pixels
constexpr double kMaxJump = 0.03;       // input pixels
constexpr double kMaxTime = 4e9;        // seconds
constexpr double kTimeStep = 5e-7;      // seconds, to which times up to kMaxTime are rounded
constexpr double kOrientationStep = 5e-7;

/// Distance of the crop window's edges from the input's, at most kMaxMargin.
double marginOf(double low, double high, int32_t size) {
    return std::min({low, size - 1 - high, kMaxMargin});
}

}  // namespace

CropBound::CropBound(const ViewGeometry& view)
    : focalLength_(view.focalLength), halfWidth_(view.inputWidth / 2 / focalLength_),
      halfHeight_(view.inputHeight / 2 / focalLength_) {
    const Vector3 first = view.cropInv * Vector3{0.0, 0.0, 1.0};
    const Vector3 last =
        view.cropInv * Vector3{view.outputWidth - 1.0, view.outputHeight - 1.0, 1.0};
    const double marginX = marginOf(first.x, last.x, view.inputWidth);
    const double marginY = marginOf(first.y, last.y, view.inputHeight);
    maxX_ = marginX - kKeptFree;
    maxY_ = marginY - kKeptFree;

    const double direction = std::sqrt(1.0 + halfWidth_ * halfWidth_ + halfHeight_ * halfHeight_);
    const double reach =
        std::max(halfWidth_ + marginX / focalLength_, halfHeight_ + marginY / focalLength_);
    pictureMotion_ = kMotionFactor * direction * std::sqrt(1.0 + reach * reach) * focalLength_;
    const double jump = pictureMotion_ * kOrientationStep;
    maxSpeed_ = (kMaxJump - jump) / (pictureMotion_ * kTimeStep);

    applies_ = maxX_ > 0.0 && maxY_ > 0.0 && view.crop(0, 0) <= kMaxScale &&
               view.crop(1, 1) <= kMaxScale && halfWidth_ <= kMaxHalfView &&
               halfHeight_ <= kMaxHalfView && jump <= kMaxJump;
}

/// Finds the largest absolute values of the rotation's vector components in the records for the
/// frame's readout. Returns false if a record is not of unit length or the rotation is too fast.
bool CropBound::boundRotation(const RotationalSensor& sensor, const Quaternion& toVirtual,
                              const RowTiming& timing, Vector3& out) const {
    const double maxRowSpeed = kMaxRowMotion * timing.rows / (pictureMotion_ * timing.readoutTime);
    const double maxSpeed = std::min(maxSpeed_, maxRowSpeed);
    Vector3 largest{0.0, 0.0, 0.0};
    double timeBefore = -std::numeric_limits<double>::infinity();
    const auto isSteady = [&](const RotationalSensor::Record& record) {
        const Quaternion rotation = toVirtual * record.orientation;
        largest.x = std::max(largest.x, std::fabs(rotation.x));
        largest.y = std::max(largest.y, std::fabs(rotation.y));
        largest.z = std::max(largest.z, std::fabs(rotation.z));
        const double seconds = record.timestamp - timeBefore;
        timeBefore = record.timestamp;
        return record.distance <= std::min(maxSpeed * seconds, kMaxDistance);
    };
    if (!sensor.allRecords(timing.start, timing.start + timing.readoutTime, isSteady)) return false;
    out = largest;
    return true;
}

bool CropBound::provesInside(SensorHub& hub, const Quaternion& virtualOrientation,
                             const RowTiming& timing) const {
    const RotationalSensor* sensor = hub.findOrientationSensor();
    const Quaternion toVirtual = virtualOrientation.inverse();
    Vector3 rotation;
    if (!applies_ || sensor == nullptr || !(timing.start <= kMaxTime) ||
        !toVirtual.isOfUnitLength() || !boundRotation(*sensor, toVirtual, timing, rotation)) {
        return false;
    }
    // The letters are those of docs/crop-bound.md.
    const double gx = kEntryFactor * (rotation.x + rotation.y * rotation.z);
    const double gy = kEntryFactor * (rotation.y + rotation.x * rotation.z);
    const double gz = kEntryFactor * (rotation.z + rotation.x * rotation.y);
    const double g2 = kEntryFactor *
                      (rotation.x * rotation.x + rotation.y * rotation.y + rotation.z * rotation.z);
    const double a = halfWidth_;
    const double b = halfHeight_;
    const double e = g2 + a * gx + b * gy;
    const double d = gz + 2.0 * a * gy + 2.0 * b * gx;
    if (!(e <= kMaxStretch && d <= kMaxShear)) return false;
    const double bound = focalLength_ * (1.0 + e) / ((1.0 - 3.0 * e) * (1.0 - e));
    return bound * (gx * (1.0 + a * a) + gy * a * b + gz * b + g2 * a) <= maxX_ &&
           bound * (gy * (1.0 + b * b) + gx * a * b + gz * a + g2 * b) <= maxY_;
}

}  // namespace qlx::zpr_framehold
