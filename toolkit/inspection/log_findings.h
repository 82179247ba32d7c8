#pragma once

#include "inspection/log_statistics.h"

#include <string>
#include <vector>

namespace framehold {

enum class Severity {
    kNote,     // good to know
    kWarning,  // costs quality
    kFatal,    // the log cannot be used as it is
};

/// What will go wrong with a log, in plain words, with what to do.
struct LogFinding {
    Severity severity;
    std::string text;
};

/// What can be told from the log alone; the worst first.
std::vector<LogFinding> findingsOf(const MotionLog& log, const LogStatistics& statistics);

/// Puts the worst first, and else leaves the order.
void sortFindings(std::vector<LogFinding>& findings);

}  // namespace framehold
