#pragma once

#include "math/quaternion.h"
#include "report/run_record.h"
#include "sensors/sensor_hub.h"
#include "smoothing/iir_smoother.h"
#include "zpr_framehold.h"

#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// The camera's path at one output frame, as it was measured and corrected, see FrameRecord.
struct ObservedPath {
    std::optional<qlx::zpr_framehold::Quaternion> measured;
    std::optional<qlx::zpr_framehold::Quaternion> corrected;
    double marginUsed = 0.0;
    double zoom = 1.0;
};

/// Computes the camera's path as an instance of the library does that is fed the same samples and
/// frame times in the same order. Instances give out no path, only pictures.
class PathObserver {
public:
    explicit PathObserver(const ZPR_Param& param);
    PathObserver(const PathObserver&) = delete;
    PathObserver& operator=(const PathObserver&) = delete;

    void addSample(const ZPR_SensorData& sample) { hub_.addSample(sample); }

    /// Sets the smoothing level, as `update` of ZPR_Stabilize does.
    void setLevel(int32_t level);

    /// timestamp: what ZPR_Stabilize is given. Returns the path at the frame that it gives back;
    /// none while it only buffers.
    std::optional<ObservedPath> takeFrame(double timestamp);

private:
    using Nodes = std::vector<qlx::zpr_framehold::MeshPoint>;

    Nodes borderNodes(const qlx::zpr_framehold::FrameCorrection& correction) const;
    double marginUsedBy(const qlx::zpr_framehold::FrameCorrection& correction) const;

    ZPR_Param param_;
    qlx::zpr_framehold::SensorHub hub_;
    qlx::zpr_framehold::IIRSmoother smoother_;
    Nodes plainCrop_;  // input positions of the output's border under no correction
    std::deque<std::optional<qlx::zpr_framehold::Quaternion>> measured_;  // of the waiting frames
};

/// Writes a run's frames as CSV: frame, time_s (first row, on the motion log's clock), the measured
/// and the corrected orientation from device to world as unit quaternions (w, x, y, z), the angle
/// between the two in degrees, the share of the margin that is used, the milliseconds that
/// stabilizing it took, and the zoom. Fields of frames without an orientation are empty. Throws
/// std::runtime_error; the file appears under its name when it is complete.
void writePathTable(const OutputName& name, const RunRecord& run);

}  // namespace framehold
