#pragma once

#include "bench/fixture.h"
#include "bench/interleaved_run.h"
#include "warp/row_kernels.h"

#include <string>
#include <vector>

namespace framehold::bench {

/// Cases on a fixture, which must outlive them.

/// Copies the frame, on as many threads as the fixture has, which wait for it.
Case makeCopy(Fixture& fixture);

/// Fixed-point maps made beforehand; bilinear in both planes.
Case makeFixedRemap(Fixture& fixture);

/// Sets OpenCV's threads to the fixture's.
void addOpencvCases(Fixture& fixture, std::vector<Case>& out);

/// Its transform runs on one thread, whatever the fixture has.
Case makeVidstab(Fixture& fixture);

/// The warper with these kernels and transforms.
Case makeWarper(Fixture& fixture, const std::string& name,
                const std::vector<AffineTransform>& transforms,
                const qlx::zpr_framehold::RowKernels& kernels);

/// Every kernel level that the machine has, with both kinds of transforms.
void addKernelCases(Fixture& fixture, std::vector<Case>& out);

}  // namespace framehold::bench
