#pragma once

#include "clip/camera_options.h"
#include "common/output_file.h"
#include "inspection/video_inspection.h"

#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Options of `framehold inspect`.
struct InspectOptions {
    ClipFiles files;  // in place of the video may be a log
    CameraOptions camera;
    OutputName page;  // to write; no path: none
    bool json = false;
    bool quiet = false;
};

/// Inspects a log, alone or with its video, and prints what it found.
/// Throws std::exception, also for a log that is not usable.
void inspectFile(const InspectOptions& options);

/// Everything that `framehold inspect` found.
struct Inspection {
    /// File that something of a clip comes from.
    struct ClipSource {
        std::string what;  // "motion", "frame times", ...
        std::string file;
        std::string rule;  // by which it was found
    };

    std::vector<ClipSource> sources;  // of a video
    std::vector<std::string> camera;  // its settings with their origins, as stabilize says them
    MotionLog log;
    LogStatistics statistics;
    std::optional<VideoInspection> video;
    std::vector<LogFinding> findings;  // the worst first

    bool isUsable() const { return findings.empty() || findings[0].severity != Severity::kFatal; }
};

/// For people: a table, then the findings.
std::string inspectionText(const Inspection& inspection);

/// HTML with pictures of the rates, the time steps and, with a video, the synchronization; it needs
/// nothing else.
std::string inspectionPage(const Inspection& inspection);

/// For programs.
std::string inspectionJson(const Inspection& inspection);

}  // namespace framehold
