#pragma once

#include "common/progress.h"
#include "media/video_reader.h"
#include "stabilize/clip_engine.h"
#include "stabilize/clip_output.h"
#include "stabilize/run_checks.h"
#include "stabilize/run_summary.h"
#include "stabilize/stabilize_options.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Reads the frames of a clip, has an engine stabilize them, writes them, and records what is to be
/// recorded.
class ClipRun {
public:
    /// An engine, and what is known from preparing it.
    struct EngineSetup {
        /// Makes the engine, which gives its results to the sink.
        std::function<std::unique_ptr<ClipEngine>(ClipEngine::Sink sink)> make;
        std::vector<std::string> notes;  // for the user
        HdrMetadata hdr;                 // of the source's frames
        StageTimes stageTimes;           // so far
        int crop;                        // percent
    };

    /// Opens the output; everything is borrowed. Throws MediaError.
    ClipRun(const StabilizeOptions& options, const ClipInputs& clip, const ClipSettings& settings,
            VideoReader& video, const EngineSetup& engine, RunRecord& record);

    /// Prints what was decided, from where each value is, and what the output cannot keep.
    void announce(RunMessages& messages) const;

    /// Throws std::exception; nothing stands under the output's name then.
    void run(const ProgressTarget& progress, RunMessages& messages);

private:
    void readFrames();
    void write(const StabilizedFrame& frame);
    void warnAboutCoverage(RunMessages& messages) const;
    void warnAboutVideo(RunMessages& messages) const;

    const StabilizeOptions& options_;
    const ClipInputs& clip_;
    const ClipSettings& settings_;
    VideoReader& video_;
    const std::vector<std::string>& notes_;
    RunRecord& record_;
    int crop_;
    ClipOutput output_;
    std::unique_ptr<ClipEngine> engine_;
    ShakeComparison shake_;
    std::optional<Progress> progress_;
    double levels_ = 0.0;  // sum of the frames' smoothing levels
    size_t taken_ = 0;
    size_t backwards_ = 0;    // frames with earlier times than the one before
    double firstTime_ = 0.0;  // seconds on the frames' clock but for the time offset
    double lastTime_ = 0.0;
};

}  // namespace framehold
