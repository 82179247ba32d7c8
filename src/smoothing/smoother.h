#pragma once

#include "math/quaternion.h"
#include "sensors/sensor_hub.h"
#include "smoothing/correction_mesh.h"
#include "smoothing/crop_limit.h"
#include "smoothing/frame_correction.h"
#include "smoothing/point_mapper.h"
#include "smoothing/shared_array.h"
#include "smoothing/view_geometry.h"
#include "zpr_framehold.h"

#include <cstdint>

namespace qlx::zpr_framehold {

/// Seconds that frames are assumed to be apart, 1 / 30.
constexpr double kFramePeriod = 0.03333333333333333;

/// Base of the smoothing algorithms, which find the correction of each frame: the orientation of a
/// virtual camera, and the mesh that maps output pixels to input positions under it.
class Smoother {
public:
    virtual ~Smoother() = default;
    Smoother(const Smoother&) = delete;
    Smoother& operator=(const Smoother&) = delete;

    /// Takes the time of a new frame (negative: no new frame) and, unless `out` is null, produces
    /// the correction of the oldest frame not yet corrected. Returns false, with `out` untouched,
    /// if that frame has no orientation. The correction is valid until the next call.
    virtual bool smoothFrame(double t, FrameCorrection* out) = 0;

    /// Clears the virtual camera's last movement if no frame has been corrected yet. Returns true.
    virtual bool primeStep() = 0;

    /// Sets the smoothing level; reads no other field.
    virtual void updateParams(const ZPR_Param& params) = 0;

    /// Discards the waiting frames; the next one starts anew.
    virtual void reset();

    /// Fills `out` with the plain centred crop and zoom. Returns `out`, which may be null.
    FrameCorrection* fallbackCorrection(FrameCorrection* out);

    /// Returns true if the rows of the frame corrected last are timed one by one; at first, true.
    bool rollingShutter() const { return rollingShutter_; }

protected:
    struct RingEntry {
        Quaternion orientation;  // as measured; all zero if unknown
        double time;
    };

    /// params and hub are borrowed and must outlive the object.
    Smoother(const ZPR_Param* params, SensorHub* hub);

    /// Returns how the rows of the frame at time t are timed: one by one if sensor data reaches the
    /// end of its readout, else all at once.
    RowTiming rowTiming(double t) const;

    /// Fills `out` with the correction under q of the frame with the given timing. isRolling: time
    /// its rows one by one unless q violates the crop, whatever `timing` says.
    void fillCorrection(const Quaternion& q, const RowTiming& timing, bool isRolling,
                        FrameCorrection& out);

    /// Finds the measured orientation of a frame at time t.
    bool queryOrientation(double t, Quaternion& out) const {
        return hub_->getOrientation(t + sensorTimeOffset_, out);
    }

    /// Brings both counts back by a multiple of the ring's size before they reach the end of their
    /// range, where frame k would get another entry than in numbers without an end.
    void limitCounts();

    /// Returns the entry of frame k since the start or the last reset.
    RingEntry& ringEntry(uint32_t k) { return frameRing_.writable()[k % frameRing_.size()]; }

    const ZPR_Param* params_;
    SensorHub* hub_;
    ViewGeometry view_;
    double sensorTimeOffset_ = 0.0;
    CropLimit cropLimit_;
    double framePeriod_ = kFramePeriod;
    uint32_t readCount_ = 0;  // less what limitCounts took from both
    uint32_t writeCount_ = 0;
    SharedArray<RingEntry> frameRing_;

private:
    struct BandPoint {
        float x;
        float y;
    };

    void buildTestBands();
    void pointAtMesh(FrameCorrection& out) const;

    SharedArray<SharedArray<BandPoint>> testBands_;  // corners of row bands of the output
    bool rollingShutter_ = true;                     // of the latest frame
    CorrectionMesh mesh_;                            // of the latest frame
};

}  // namespace qlx::zpr_framehold
