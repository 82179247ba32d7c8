#pragma once

#include "smoothing/smoother.h"

namespace qlx::zpr_framehold {

/// First-order recursive filter on the camera's rotation, with a look-ahead over the frames that
/// wait in the delay ring and over sensor samples that have already arrived.
class IIRSmoother final : public Smoother {
public:
    IIRSmoother(const ZPR_Param* params, SensorHub* hub);

    bool smoothFrame(double t, FrameCorrection* out) override;
    bool primeStep() override;
    void updateParams(const ZPR_Param& params) override;
    void reset() override;

    /// Orientation of the virtual camera at the frame corrected last.
    const Quaternion& virtualOrientation() const { return smoothed_; }

private:
    void takeFrame(double t);
    void catchUpWhenStill(const Quaternion& measured, double t);
    bool lookAhead(const RowTiming& timing);

    bool started_ = false;    // a frame with an orientation has been seen
    Quaternion smoothed_;     // orientation of the virtual camera
    Quaternion lastStep_;     // rotation of the virtual camera since the previous frame
    int32_t stillCount_ = 0;  // consecutive frames of a still device and a virtual camera off it
    double alpha_;            // filter coefficient: share of the previous virtual orientation
};

}  // namespace qlx::zpr_framehold
