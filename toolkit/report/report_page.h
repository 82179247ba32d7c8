#pragma once

#include "measures/clip_measures.h"
#include "report/picture_pairs.h"
#include "report/run_record.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace framehold {

/// What a report tells.
struct ReportContent {
    std::string original;
    std::string stabilized;
    std::optional<RunRecord> run;  // none: the page says that it is not known what was done
    double cutoff = 1.0;           // Hz, of the measures
    ClipMeasures before;
    ClipMeasures after;
    std::vector<PicturePair> pictures;
};

/// Throws std::runtime_error in a program that was built without the page's parts; to be called
/// before the work that a report needs.
void requireReports();

/// Writes one HTML page that needs nothing else, neither files nor a network. It appears under its
/// name when it is complete. Throws std::runtime_error.
void writeReport(const std::string& path, const ReportContent& content);

/// The texts that a report page is put together from, embedded when the program is built.
struct PageAssets {
    std::string_view page;    // HTML with the marks <!--style-->, <!--data--> and <!--script-->
    std::string_view style;   // CSS, of the plots and of the page
    std::string_view script;  // JavaScript, of the plots and of the page
};

/// Null in a program that was built without Node's npm.
const PageAssets* pageAssets();

}  // namespace framehold
