#pragma once

#include "bench/bench_report.h"

#include <vector>

namespace framehold::bench {

/// Rendering frames of a size: all cases.
Table measureRendering(Size size, int threads, int ring, const Effort& effort);

/// Whole calls of ZPR_Stabilize and their stages, on the instance's pool or on one thread.
Table measureStages(Size size, int delayFrames, bool usePool, int ring, const Effort& effort);

/// The cost of handing a frame to the pool: warps that render nothing.
Table measurePool(Size size, int threads, const Effort& effort);

/// Prints how much of a warp's time each thread spends rendering.
void printIdleShare(Size size, int threads, int ring, const Effort& effort);

}  // namespace framehold::bench
