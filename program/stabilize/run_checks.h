#pragma once

#include "clip/clip_settings.h"
#include "inspection/log_findings.h"
#include "stabilize/run_summary.h"
#include "stabilize/stabilize_options.h"
#include "tracking/feature_tracks.h"

#include <optional>
#include <vector>

namespace framehold {

/// Compares samples of a clip with what its log predicts, and warns of what does not fit; returns
/// the worst of it. Where the log covers no frame and nothing says the time offset, finds it in all of
/// the log. Only notes that standard input can be read only once. Throws std::runtime_error, with the
/// remedy, for a log that would make the clip shakier, or covers no frame at any offset that is well
/// determined, unless options.force.
std::optional<LogFinding> checkBeforeRun(const StabilizeOptions& options, const ClipInputs& clip,
                                         ClipSettings& settings, RunMessages& messages);

/// Measures how a run changes the shake, on the same short parts of source and result.
class ShakeComparison {
public:
    explicit ShakeComparison(const VideoProperties& video);

    // Take every frame of the clip and every one of the result, in order; the first frame of the
    // result is that of the clip. time: of the frame, in seconds.
    void addSource(const AVFrame& frame, double time) { source_.add(*this, frame, time); }
    void addResult(const AVFrame& frame, double time) { result_.add(*this, frame, time); }

    /// Shake of both, after the last frame; none if it cannot be measured.
    std::optional<ShakeAmounts> measure();

private:
    /// One of the two clips.
    struct Side {
        FeatureTracker tracker{SampleSettings().tracks};
        int64_t frames = 0;
        std::vector<FeatureTracks> parts;

        void add(const ShakeComparison& comparison, const AVFrame& frame, double time);
    };

    bool isInPart(int64_t frame) const;

    int64_t partLength_;  // frames
    int64_t partPeriod_;  // frames from the start of a part to the next one's
    Side source_;
    Side result_;
};

/// Says so if the result is shakier.
void warnOfShake(const ShakeAmounts& shake, RunMessages& messages);

}  // namespace framehold
