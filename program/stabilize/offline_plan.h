#pragma once

#include "clip/clip_settings.h"
#include "common/progress.h"
#include "media/hdr_metadata.h"
#include "path/lens_shift_track.h"
#include "path/orientation_track.h"
#include "path/pinhole_camera.h"
#include "path/view.h"
#include "report/run_record.h"

#include <string>
#include <vector>

namespace framehold {

/// How each frame of a clip is to be rendered.
struct OfflinePlan {
    PinholeCamera source;
    PinholeCamera output;
    int crop = 0;                    // percent, of `output`
    OrientationTrack track;          // of the source, times as `rowTimes`
    LensShiftTrack shifts;           // of the source's lens, likewise
    std::vector<double> rowTimes;    // of each frame's first row, in seconds
    std::vector<View> views;         // of each frame
    std::vector<double> marginUsed;  // 0 to 1 at each frame, see FrameRecord
    std::vector<std::string> notes;  // what the plan builds on, for the user
    HdrMetadata hdr;                 // of the source's frames
    StageTimes stageTimes;           // of analysing and finding the path
};

/// Reads a clip once, finds its camera's orientation over time by log and pictures, and the path of
/// the virtual camera. progress: of these two. Throws std::exception.
OfflinePlan planOffline(const ClipInputs& clip, const ClipSettings& settings,
                        const ProgressTarget& progress);

}  // namespace framehold
