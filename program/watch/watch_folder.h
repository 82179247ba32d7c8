#pragma once

#include "stabilize/batch_plan.h"

#include <string>

namespace framehold {

/// Options of `framehold watch`.
struct WatchOptions {
    std::string folder;
    double settleSeconds = 5.0;  // for which a recording has to stay as it is
    BatchOptions batch;          // without inputs
};

/// Stabilizes the recordings in a folder, those that are there and those that come, until the program
/// is interrupted. A recording is taken when its files, found by its name or as its log, have stayed
/// as they are for a while and its video can be read to its end; one that fails is taken again when
/// its files change. Recordings whose results are there are passed over.
/// Throws CLI::ValidationError; Interrupted if a clip was not finished; std::runtime_error, when it
/// ends, if a recording failed.
void watchFolder(const WatchOptions& options);

}  // namespace framehold
