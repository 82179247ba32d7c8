#include "compare/measured_clips.h"

#include "common/interruption.h"
#include "common/progress.h"
#include "measures/cropping_ratio.h"
#include "media/video_reader.h"

namespace framehold {

std::vector<ClipMeasures> measureClips(const std::vector<std::string>& videos,
                                       const MeasureSettings& settings) {
    std::vector<ClipMeasures> clips;
    for (const std::string& video : videos) {
        Progress progress("measuring", 2 * VideoReader(video).expectedFrames(), settings.progress);
        clips.push_back(measureClip(video, settings.cutoff, [&progress] {
            throwIfInterrupted();
            progress.advance();
        }));
        if (clips.size() > 1) {
            clips.back().croppingRatio = croppingRatio(videos[0], video, settings.delay);
        }
    }
    return clips;
}

}  // namespace framehold
