#pragma once

#include "report/run_record.h"

#include <cstdio>
#include <string>

#include <fmt/format.h>

namespace framehold {

/// Tells the user on standard error what a run does, and keeps it in the run's record.
class RunMessages {
public:
    /// label: what every line starts with, to tell the clips of a batch apart; may be empty.
    /// showsNotes: else only warnings are told.
    RunMessages(RunRecord& record, const std::string& label, bool showsNotes)
        : record_(record), prefix_(label.empty() ? "" : label + ": "), showsNotes_(showsNotes) {}

    /// Something that was chosen or found.
    void note(const std::string& text) {
        record_.notes.push_back(text);
        say(text);
    }

    /// Something that makes the result worse than it could be.
    void warn(const std::string& text) {
        record_.warnings.push_back(text);
        fmt::print(stderr, "{}warning: {}\n", prefix_, text);
    }

    /// What only matters while the program runs.
    void say(const std::string& text) const {
        if (showsNotes_) fmt::print(stderr, "{}{}\n", prefix_, text);
    }

private:
    RunRecord& record_;
    std::string prefix_;
    bool showsNotes_;
};

}  // namespace framehold
