#pragma once

#include "math/matrix3.h"
#include "math/quaternion.h"
#include "sensors/sensor_hub.h"
#include "smoothing/frame_correction.h"
#include "smoothing/view_geometry.h"

#include <limits>

namespace qlx::zpr_framehold {

/// Readout times of a frame's rows, in seconds: `y * readoutTime / rows` after `start` for row y,
/// or `start` for all.
struct RowTiming {
    double start;
    double readoutTime;
    double rows;
    bool isRolling;

    double at(double y) const { return isRolling ? start + y * readoutTime / rows : start; }
};

/// Mapping of an output frame's pixels to the input under one virtual orientation and a rolling
/// shutter. Valid until samples arrive.
class PointMapper {
public:
    /// view and hub are borrowed.
    PointMapper(const ViewGeometry& view, SensorHub& hub, const Quaternion& virtualOrientation,
                const RowTiming& timing)
        : view_(view), hub_(hub), toVirtual_(virtualOrientation.inverse()), timing_(timing) {}

    /// Finds the input position whose row, at its own readout time, is seen at the output position.
    /// rowHint: an input row to start from, negative for none. Returns false, with `out` untouched,
    /// if the iteration does not end or there is no orientation for one of its rows.
    bool mapOutputPoint(double xTarget, double yTarget, double rowHint, MeshPoint& out);

private:
    /// Mapping of input to output positions at one time, if the orientation is known.
    struct Homography {
        double time = std::numeric_limits<double>::quiet_NaN();
        bool isKnown = false;
        Matrix3 matrix;
    };

    const Homography& homographyAt(double y, Homography& last) const;

    const ViewGeometry& view_;
    SensorHub& hub_;
    Quaternion toVirtual_;
    RowTiming timing_;
    // The latest of a first pass and of a later one. First passes of points in one output row have
    // the same time unless there is a hint; without rolling, all passes have it.
    Homography first_;
    Homography later_;
};

}  // namespace qlx::zpr_framehold
