#pragma once

#include "report/run_record.h"
#include "stabilize/stabilize_options.h"

#include <string>

namespace framehold {

/// How a clip's run shows itself.
struct RunDisplay {
    std::string label;         // what messages start with; empty: nothing
    bool showNotes = true;     // what was chosen, not only what is wrong
    bool showProgress = true;  // a progress bar, if standard error is a terminal
    bool observePath = true;   // fill in orientations and margins of the record's frames
};

/// Stabilizes one recorded clip: reads the video and its motion log, feeds both to the library and
/// writes the result to `options.output`, with the source's timestamps and other streams. Tells on
/// standard error what it does. Fills `record` as far as it gets.
/// Throws std::exception; nothing stands under the output's name then.
void stabilizeClip(const StabilizeOptions& options, const RunDisplay& display, RunRecord& record);

}  // namespace framehold
