#pragma once

#include "common/output_file.h"
#include "compare/measured_clips.h"
#include "report/run_record.h"

#include <optional>
#include <string>

namespace framehold {

/// Content of a report.
struct ReportRequest {
    std::string original;
    std::string stabilized;
    std::optional<RunRecord> run;
    MeasureSettings settings;
    OutputName page;
};

/// Measures both clips, takes pictures of them and writes the page. Returns their shake, if that is
/// known. Throws std::exception.
std::optional<ShakeAmounts> makeReport(const ReportRequest& request);

}  // namespace framehold
