#pragma once

#include "common/progress.h"
#include "report/run_record.h"
#include "stabilize/stabilize_options.h"

#include <string>

namespace framehold {

/// Messages of a clip's run.
struct RunDisplay {
    std::string label;      // start of each message; may be empty
    bool showNotes = true;  // else only warnings
    ProgressTarget progress = true;
};

/// Stabilizes one recorded clip, whose files were found: loads what is known of it, decides on the
/// settings, calibrates if that is asked for, and runs. The result has the source's timestamps and
/// other streams. Prints messages to standard error and fills `record` as far as it gets. Returns
/// what a calibration found of the camera that is well determined and holds for other clips, too.
/// Throws std::exception; nothing stands under the output's name then.
ClipMetadata stabilizeClip(const StabilizeOptions& options, FoundClip found,
                           const RunDisplay& display, RunRecord& record);

}  // namespace framehold
