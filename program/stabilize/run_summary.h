#pragma once

#include "report/run_record.h"

#include <nlohmann/json.hpp>

namespace framehold {

/// How the run of one clip ended.
struct ClipResult {
    enum class End { kDone, kFailed, kInterrupted };

    RunRecord record;
    End end = End::kInterrupted;
    std::string error;  // empty if it is done
};

/// What `--json` says of one clip: files, how it ended, and of clips that are done the parameters,
/// counts of frames, largest share of the margin used, and all notes and warnings.
nlohmann::ordered_json summaryOf(const ClipResult& result);

}  // namespace framehold
