#pragma once

#include "sensors/sensor_hub.h"
#include "smoothing/point_mapper.h"
#include "smoothing/view_geometry.h"

namespace qlx::zpr_framehold {

/// Conservative bound on how far the crop test of a frame with per-row timing finds its points from
/// where they are without rotation: from bounds on the rotation between the virtual camera and the
/// device over the readout, instead of mapping the points. With a steady hand it is mostly small
/// enough that no point can leave the input.
///
/// In units of the focal length f from the centre, device directions are (Y, X, 1), and a rotation
/// R takes a position to X' = r1 / r2, Y' = r0 / r2 with r = R (Y, X, 1). Let gx, gy, gz bound the
/// entries of R off its diagonal, g2 the distances of the diagonal ones from 1 and from each other,
/// for all rotations during the readout, and let |X| <= A, |Y| <= B in the input.
///
/// 1. Displacement. With e = g2 + A gx + B gy, r2 is within 1 -+ e, so that in the input X' differs
///    from X by at most bx = (gx (1 + A A) + gy A B + gz B + g2 A) / (1 - e), Y' from Y by the
///    corresponding by.
/// 2. Iteration. A pass adds to each coordinate its residual times a factor within
///    (1 + e) / (1 - e) and its reciprocal, hence within 1 -+ 2 e / (1 - e). So no pass leads
///    further from the start than b (1 + e) / (1 - 3 e). As long as that is less than the start's
///    distance from the input's border, all of them stay where 1 holds and ask for times within
///    the readout, for which there are orientations.
/// 3. Convergence. The derivative of (X', Y') differs from the identity by at most 3 e / (1 - e) on
///    its diagonal and d / (1 - e) off it, d = gz + 2 A gy + 2 B gx. With e <= 0.05, d <= 0.1 and
///    rows whose readout moves the picture by no more than 0.18 pixels each, the largest coordinate
///    of the residual shrinks to 0.6 with every pass: from at most 1400 output pixels to less than
///    0.1 in the 19 steps there are. Rounding of times and of nearly equal orientations adds jumps
///    of at most 0.03 input pixels a pass, which add up to 0.15 output pixels. The sum is less than
///    the residual at which the passes end.
/// 4. Result. By 1, p -> start - (displacement at p) takes the box of size b around the start into
///    itself, so it has a fixed point there; that is the position that the last pass's homography
///    takes to the target.
///
/// All else that rounds does so by less than a thousandth of the pixel that is kept free.
class CropBound {
public:
    explicit CropBound(const ViewGeometry& view);

    /// Returns true if the crop test of a frame with the given virtual orientation, its rows timed
    /// one by one, cannot fail. False: not known.
    bool provesInside(SensorHub& hub, const Quaternion& virtualOrientation,
                      const RowTiming& timing) const;

private:
    bool boundRotation(const RotationalSensor& sensor, const Quaternion& toVirtual,
                       const RowTiming& timing, Vector3& out) const;

    bool applies_;  // to this view
    double focalLength_;
    double halfWidth_;  // of the input, in focal lengths
    double halfHeight_;
    double maxX_;  // input pixels that points may move along x and y
    double maxY_;
    double pictureMotion_;  // input pixels per distance of two quaternions
    double maxSpeed_;       // of the quaternions a second
};

}  // namespace qlx::zpr_framehold
