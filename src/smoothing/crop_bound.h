#pragma once

#include "sensors/sensor_hub.h"
#include "smoothing/point_mapper.h"
#include "smoothing/view_geometry.h"

namespace qlx::zpr_framehold {

/// Conservative bound on how far rotation moves the points that the crop test maps, from the
/// rotations between the virtual camera and the device in a frame's records. Cheaper than mapping
/// the points; docs/crop-bound.md has the proof.
class CropBound {
public:
    explicit CropBound(const ViewGeometry& view);

    /// Returns true if the crop test of a frame with the given virtual orientation, its rows timed
    /// one by one, is certain to find every point inside the input. False: not known.
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
