#include "smoothing/crop_bound.h"

#include <algorithm>
#include <cmath>

namespace qlx::zpr_framehold {

namespace {

constexpr double kMaxMargin = 700.0;  // input pixels; times kMaxScale, the largest residual
constexpr double kMaxScale = 2.0;     // output pixels per input pixel
constexpr double kMaxHalfView = 2.0;  // focal lengths
constexpr double kKeptFree = 1.0;     // input pixels

/// Room between the crop window's edges and the input's, at most kMaxMargin.
double margin(double low, double high, int32_t size) {
    return std::min({low, size - 1 - high, kMaxMargin});
}

}  // namespace

CropBound::CropBound(const ViewGeometry& view)
    : focalLength_(view.focalLength), halfWidth_(view.inputWidth / 2 / focalLength_),
      halfHeight_(view.inputHeight / 2 / focalLength_) {
    const Vector3 first = view.cropInv * Vector3{0.0, 0.0, 1.0};
    const Vector3 last =
        view.cropInv * Vector3{view.outputWidth - 1.0, view.outputHeight - 1.0, 1.0};
    const double roomX = margin(first.x, last.x, view.inputWidth);
    const double roomY = margin(first.y, last.y, view.inputHeight);
    marginX_ = roomX - kKeptFree;
    marginY_ = roomY - kKeptFree;
    applies_ = marginX_ > 0.0 && marginY_ > 0.0 && view.crop(0, 0) <= kMaxScale &&
               view.crop(1, 1) <= kMaxScale && halfWidth_ <= kMaxHalfView &&
               halfHeight_ <= kMaxHalfView;

    // A quaternion that moves by m moves the direction v by at most 2 m |v| (1 + 3 s) for rotations
    // of half-angle sine s, here at most 0.16, and its picture by sqrt(1 + X' X') / (1 - e) times
    // that; interpolation is at most 1.1 times as fast as MotionBounds::speed.
    const double direction = std::sqrt(1.0 + halfWidth_ * halfWidth_ + halfHeight_ * halfHeight_);
    const double reach =
        std::max(halfWidth_ + roomX / focalLength_, halfHeight_ + roomY / focalLength_);
    pictureMotion_ = 3.5 * direction * std::sqrt(1.0 + reach * reach) * focalLength_;
}

bool CropBound::provesInside(SensorHub& hub, const Quaternion& virtualOrientation,
                             const RowTiming& timing) const {
    constexpr double kMaxStretch = 0.05;  // for the shrinking of step 3, as the next two
    constexpr double kMaxShear = 0.1;
    constexpr double kMaxRowMotion = 0.18;  // input pixels, as kMaxJump
    constexpr double kMaxJump = 0.03;
    constexpr double kMaxTime = 4e9;    // seconds, where times are rounded to kTimeStep
    constexpr double kTimeStep = 5e-7;  // seconds
    constexpr double kOrientationStep = 5e-7;

    MotionBounds motion;
    if (!applies_ || !(timing.start <= kMaxTime) ||
        !hub.boundMotion(timing.start, timing.start + timing.readoutTime,
                         virtualOrientation.inverse(), motion)) {
        return false;
    }
    const double pictureSpeed = motion.speed * pictureMotion_;
    if (!(pictureSpeed * timing.readoutTime / timing.rows <= kMaxRowMotion &&
          pictureSpeed * kTimeStep + pictureMotion_ * kOrientationStep <= kMaxJump)) {
        return false;
    }
    // A hundredth more than 2 covers that interpolated orientations lie up to 0.2 percent beyond
    // the records.
    const double gx = 2.02 * (motion.x + motion.y * motion.z);
    const double gy = 2.02 * (motion.y + motion.x * motion.z);
    const double gz = 2.02 * (motion.z + motion.x * motion.y);
    const double g2 = 2.02 * (motion.x * motion.x + motion.y * motion.y + motion.z * motion.z);
    const double a = halfWidth_;
    const double b = halfHeight_;
    const double e = g2 + a * gx + b * gy;
    const double d = gz + 2.0 * a * gy + 2.0 * b * gx;
    if (!(e <= kMaxStretch && d <= kMaxShear)) return false;
    const double bound = focalLength_ * (1.0 + e) / ((1.0 - 3.0 * e) * (1.0 - e));
    return bound * (gx * (1.0 + a * a) + gy * a * b + gz * b + g2 * a) <= marginX_ &&
           bound * (gy * (1.0 + b * b) + gx * a * b + gz * a + g2 * b) <= marginY_;
}

}  // namespace qlx::zpr_framehold
