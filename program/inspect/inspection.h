#pragma once

#include "inspection/video_inspection.h"

#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Everything that `framehold inspect` found.
struct Inspection {
    MotionLog log;
    LogStatistics statistics;
    std::optional<VideoInspection> video;
    std::vector<LogFinding> findings;  // the worst first

    bool isUsable() const { return findings.empty() || findings[0].severity != Severity::kFatal; }
};

/// For people: a table, then the findings.
std::string inspectionText(const Inspection& inspection);

/// For programs.
std::string inspectionJson(const Inspection& inspection);

}  // namespace framehold
