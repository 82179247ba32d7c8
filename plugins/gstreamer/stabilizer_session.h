#pragma once

#include "zpr_framehold.h"
#include "zpr_smoothing_policy.h"

#include <memory>

namespace framehold {

/// An instance of the library, from a stream's first frame to a gap, a change or its end.
class StabilizerSession {
public:
    /// param: pitch 0 of its input is that of all input if frames are delayed.
    /// start: a time that no frame's corrected time and no sample is before, so that the library's
    /// times are positive. Throws std::runtime_error.
    StabilizerSession(const ZPR_Param& param, double start);

    /// Takes a sample; those of types that are not enabled are left out. Returns false for these.
    bool addSample(ZPR_SensorData sample);

    /// Sets the level from the next frame on: 1 to 10, or 0 for one chosen for every frame.
    void setSmoothing(int level) { smoothing_ = level; }

    /// True if the next frame fills the delay ring no more: `stabilize` will write one.
    bool isFull() const { return taken_ >= param_.delayFrames; }

    /// Takes a frame; true if `output` was written. time: without the time offset.
    bool stabilize(double time, const ZPR_Image& input, ZPR_Image& output);

    /// Level of the frame taken last.
    int smoothingLevel() const { return update_.smoothingLevel; }
    const ZPR_Param& param() const { return param_; }

private:
    struct Deinit {
        void operator()(ZPR_Handle handle) const { ZPR_Deinit(&handle); }
    };

    ZPR_Param param_;
    ZPR_Param update_;
    double shift_;  // seconds from the samples' clock to the library's
    int smoothing_ = 0;
    int taken_ = 0;  // frames, as far as they count for the ring
    ZPR_SmoothingPolicy policy_;
    std::unique_ptr<ZPR_Instance, Deinit> handle_;
};

/// Strongest level where the level is chosen for every frame.
constexpr int kStrongestChosen = 9;

}  // namespace framehold
