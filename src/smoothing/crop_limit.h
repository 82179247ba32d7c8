#pragma once

#include "math/quaternion.h"
#include "sensors/sensor_hub.h"
#include "smoothing/crop_bound.h"
#include "smoothing/point_mapper.h"
#include "smoothing/view_geometry.h"

namespace qlx::zpr_framehold {

/// Limit on the virtual orientation that keeps the output inside the input.
class CropLimit {
public:
    /// view and hub are borrowed. sensorTimeOffset: seconds from a frame's time to that of its
    /// measured orientation.
    CropLimit(const ViewGeometry& view, SensorHub& hub, double sensorTimeOffset)
        : view_(view), hub_(hub), sensorTimeOffset_(sensorTimeOffset), bound_(view) {}

    /// Returns true if output under the virtual orientation q needs pixels outside the input, or
    /// pixels whose position is not known.
    bool violatesCrop(const Quaternion& q, const RowTiming& timing) const;

    /// Moves q toward the measured orientation, just far enough, if it violates the crop. Returns
    /// true if it did.
    bool pullIntoCrop(Quaternion& q, const RowTiming& timing) const;

private:
    const ViewGeometry& view_;
    SensorHub& hub_;
    double sensorTimeOffset_;
    CropBound bound_;
};

}  // namespace qlx::zpr_framehold
