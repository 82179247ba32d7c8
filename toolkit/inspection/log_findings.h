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

/// Problem that a log will cause, in plain words, with the remedy.
struct LogFinding {
    Severity severity;
    std::string text;
    std::string remedy = {};  // options that mend it, where there are; also in the text
};

/// Findings from the log alone, the worst first.
std::vector<LogFinding> findingsOf(const MotionLog& log, const LogStatistics& statistics);

/// Sorts by severity, the worst first; findings of one severity keep their order.
void sortFindings(std::vector<LogFinding>& findings);

}  // namespace framehold
