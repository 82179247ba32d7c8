#pragma once

#include "common/output_file.h"
#include "measures/clip_measures.h"
#include "report/picture_pairs.h"
#include "report/playing_clip.h"
#include "report/run_record.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace framehold {

/// Content of a report.
struct ReportContent {
    std::string original;
    std::string stabilized;
    std::optional<RunRecord> run;  // none: not known what was done
    double cutoff = 1.0;           // Hz, of the measures
    ClipMeasures before;
    ClipMeasures after;
    std::vector<PicturePair> pictures;
    PlayingClip clip;
    int quarterTurns = 0;  // clockwise, 0 to 3, by which pictures are turned to be upright
};

/// Throws std::runtime_error in a program that was built without the page's assets; for a check
/// before the work that a report needs.
void requireReports();

/// Writes a report as one HTML page that needs no other files and no network. It appears under its
/// name when it is complete. Throws std::runtime_error.
void writeReport(const OutputName& name, const ReportContent& content);

/// Texts that a report page is made of, embedded when the program is built.
struct PageAssets {
    std::string_view page;    // HTML with the marks <!--style-->, <!--data--> and <!--script-->
    std::string_view style;   // CSS, of the plots and of the page
    std::string_view script;  // JavaScript, of the plots and of the page
};

/// Null in a program that was built without Node's npm.
const PageAssets* pageAssets();

}  // namespace framehold
