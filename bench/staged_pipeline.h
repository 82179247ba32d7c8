#pragma once

#include "api/instance.h"
#include "bench/fixture.h"
#include "support/hand_shake.h"
#include "warp/block_warper.h"
#include "warp/row_kernels.h"

#include <memory>

namespace framehold::bench {

/// An instance whose stages can be run one by one, in the order and on the objects of
/// ZPR_Stabilize. Starts with its delay ring full.
class StagedPipeline {
public:
    /// Renders with `kernels`, on the instance's own pool or on the calling thread alone.
    StagedPipeline(Size size, int delayFrames, bool usePool,
                   const qlx::zpr_framehold::RowKernels& kernels);

    void feedSamples();
    void copy(const ZPR_Image& input);
    void smooth();

    /// On the calling thread, so that the pool's cost, which comes once, shows in `warp`.
    void map(const ZPR_Image& input, const ZPR_Image& output);

    /// Includes the mapping.
    void warp(const ZPR_Image& input, const ZPR_Image& output);

    /// ZPR_Stabilize in place of copy, smooth and warp.
    void stabilize(const ZPR_Image& input, ZPR_Image& output);

    /// Goes on to the next frame.
    void advance() { ++frame_; }

    /// Threads that render: those of the pool and the caller.
    int threads() const { return threads_; }

private:
    struct Destroyer {
        void operator()(ZPR_Instance* instance) const {
            qlx::zpr_framehold::destroyInstance(instance);
        }
    };

    double time() const;
    const ZPR_Image& sourceFor(const ZPR_Image& input) const;

    std::unique_ptr<ZPR_Instance, Destroyer> instance_;
    std::unique_ptr<qlx::zpr_framehold::BlockWarper> mapper_;
    qlx::zpr_framehold::FrameCorrection correction_;
    zpr_test::HandShake shake_{zpr_test::kRatesAndGravity};
    int frame_ = 0;
    int threads_ = 1;
};

}  // namespace framehold::bench
