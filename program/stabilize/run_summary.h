#pragma once

#include "report/run_record.h"

#include <string>

#include <nlohmann/json.hpp>

namespace framehold {

/// How the run of one clip went, for console, JSON and report.
struct RunSummary {
    enum class End { kDone, kFailed, kInterrupted };

    RunRecord record;
    End end = End::kInterrupted;
    std::string error;  // empty if it is done
};

/// What `--json` says of one clip: files, how it ended, and of clips that are done the parameters,
/// counts of frames, largest share of the margin used, and all notes and warnings.
nlohmann::ordered_json jsonOf(const RunSummary& summary);

/// What the console says of a clip that is done or failed, among others.
std::string lineOf(const RunSummary& summary);

/// Tells the user on standard error what a run does, and keeps it in the run's record.
class RunMessages {
public:
    /// label: what every line starts with, to tell the clips of a batch apart; may be empty.
    /// showsNotes: else only warnings are told.
    RunMessages(RunRecord& record, const std::string& label, bool showsNotes)
        : record_(record), prefix_(label.empty() ? "" : label + ": "), showsNotes_(showsNotes) {}

    /// Something that was chosen or found.
    void note(const std::string& text);

    /// Something that makes the result worse than it could be.
    void warn(const std::string& text);

    /// What only matters while the program runs.
    void say(const std::string& text) const;

private:
    RunRecord& record_;
    std::string prefix_;
    bool showsNotes_;
};

}  // namespace framehold
