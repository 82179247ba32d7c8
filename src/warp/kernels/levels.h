#pragma once

#include "warp/row_kernels.h"

namespace qlx::zpr_framehold {

// The kernel of each instruction set; only those of the platform are built.
RenderRow renderRow_scalar;
RenderRow renderRow_neon;
RenderRow renderRow_sse41;
RenderRow renderRow_avx2;

}  // namespace qlx::zpr_framehold
