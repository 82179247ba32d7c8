#pragma once

#include "report/run_record.h"

#include <optional>
#include <string>

namespace framehold {

/// What a report is made of.
struct ReportRequest {
    std::string original;
    std::string stabilized;
    std::optional<RunRecord> run;
    double cutoff = 1.0;  // Hz, of the measures
    int delay = 0;        // frames by which the stabilized clip is late
    std::string page;     // the file to write
    bool progress = true;
};

/// Measures both clips, takes pictures of them and writes the page. Throws std::exception.
void makeReport(const ReportRequest& request);

}  // namespace framehold
