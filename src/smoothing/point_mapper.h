#pragma once

#include "math/matrix3.h"
#include "math/quaternion.h"
#include "sensors/sensor_hub.h"
#include "smoothing/frame_correction.h"
#include "smoothing/view_geometry.h"

#include <limits>

namespace qlx::zpr_framehold {

/// When the rows of a frame are read out, in seconds: row y `y * readoutTime / rows` after `start`,
/// or all of them at once.
struct RowTiming {
    double start;
    double readoutTime;
    double rows;
    bool isRolling;

    double at(double y) const { return isRolling ? start + y * readoutTime / rows : start; }
};

/// Finds where the pixels of an output frame lie in the input under one virtual orientation and a
/// rolling shutter. Lives for as long as no samples arrive.
class PointMapper {
public:
    /// view and hub are borrowed.
    PointMapper(const ViewGeometry& view, SensorHub& hub, const Quaternion& virtualOrientation,
                const RowTiming& timing)
        : view_(view), hub_(hub), toVirtual_(virtualOrientation.inverse()), timing_(timing) {}

    /// Finds the input position whose row, at its own readout time, is seen at the output position.
    /// rowHint: an input row to start from, negative for none. False, with `out` untouched, if
    /// there is no orientation for a row on the way or no position is found.
    bool mapOutputPoint(double xTarget, double yTarget, double rowHint, MeshPoint& out);

private:
    /// Takes input positions to output positions at one time, if the orientation is known.
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
