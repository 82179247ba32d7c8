#pragma once

#include "common/progress.h"
#include "report/run_record.h"

#include <string>

#include <nlohmann/json.hpp>

namespace framehold {

/// Outcome of one clip, for console, JSON and report.
struct RunSummary {
    enum class End { kDone, kSkipped, kFailed, kInterrupted };

    RunRecord record;
    End end = End::kInterrupted;
    std::string error;  // empty if it is done
};

/// The clip in `--json`: files, how it ended, and for clips that are done the parameters,
/// counts of frames, largest share of the margin used, processor times of stages, and all notes and
/// warnings.
nlohmann::ordered_json jsonOf(const RunSummary& summary);

/// The line on the console for a clip that is done or failed, among others.
std::string lineOf(const RunSummary& summary);

/// Prints the messages of a run to standard error, and keeps them in the run's record.
class RunMessages {
public:
    /// label: start of every line, for the clips of a batch; may be empty. showsNotes: else only
    /// warnings are printed. progress: of the run.
    RunMessages(RunRecord& record, const std::string& label, bool showsNotes,
                const ProgressTarget& progress)
        : record_(record), prefix_(label.empty() ? "" : label + ": "), showsNotes_(showsNotes),
          progress_(progress) {}

    /// Something that was chosen or found.
    void note(const std::string& text);

    /// Something that makes the result worse than it could be.
    void warn(const std::string& text);

    /// Something that makes the result less than what was wanted: exit code 3.
    void lose(const std::string& text);

    /// Something that only matters while the program runs.
    void say(const std::string& text) const;

private:
    RunRecord& record_;
    std::string prefix_;
    bool showsNotes_;
    ProgressTarget progress_;
};

}  // namespace framehold
