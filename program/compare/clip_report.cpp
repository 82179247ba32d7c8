#include "compare/clip_report.h"

#include "media/upright_frame.h"
#include "report/page_data.h"
#include "report/report_page.h"

#include <utility>

namespace framehold {

std::optional<ShakeAmounts> makeReport(const ReportRequest& request) {
    requireReports();
    std::vector<ClipMeasures> clips =
        measureClips({request.original, request.stabilized}, request.settings);
    ReportContent content;
    content.original = request.original;
    content.stabilized = request.stabilized;
    content.run = request.run;
    content.cutoff = request.settings.cutoff;
    content.before = std::move(clips[0]);
    content.after = std::move(clips[1]);
    content.quarterTurns = quarterTurns(VideoReader(request.original));
    content.pictures = takePictures(request.original, request.stabilized, request.settings.delay);
    constexpr double kSeconds = 4.0;
    content.clip = makePlayingClip(request.original, request.stabilized, request.settings.delay,
                                   shakiestStart(content.before, kSeconds), kSeconds);
    writeReport(request.page, content);
    return shakeIn(content);
}

}  // namespace framehold
