#pragma once

#include "stabilize/batch_plan.h"

namespace framehold {

/// Stabilizes all clips. One that fails does not stop the others.
/// Throws as planBatch does; what went wrong if there is one clip; std::runtime_error if some of
/// several failed; DoneWithLosses; Interrupted.
void stabilizeAll(const BatchOptions& options);

}  // namespace framehold
