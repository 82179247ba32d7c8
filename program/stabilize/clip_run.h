#pragma once

#include "common/progress.h"
#include "media/video_reader.h"
#include "session/session_file.h"
#include "stabilize/clip_output.h"
#include "stabilize/engine.h"
#include "stabilize/motion_samples.h"
#include "stabilize/path_observer.h"
#include "stabilize/run_checks.h"
#include "stabilize/run_summary.h"
#include "stabilize/stabilize_options.h"

#include <optional>

namespace framehold {

/// Reads the frames of a clip, has the engine stabilize them, writes them, and records what is to be
/// recorded.
class ClipRun {
public:
    /// Opens the output; all but the motion is borrowed. observesPath: fills in orientations and
    /// margins of the record's frames. Throws MediaError.
    ClipRun(const StabilizeOptions& options, const ClipInputs& clip, const ClipSettings& settings,
            MotionSamples motion, VideoReader& video, bool observesPath, RunRecord& record);

    /// Prints what was decided, from where each value is, and what the output cannot keep.
    void announce(RunMessages& messages) const;

    /// Throws std::exception; nothing stands under the output's name then.
    void run(bool showsProgress, RunMessages& messages);

private:
    Engine::Events engineEvents();
    double timeOf(const AVFrame& frame) const;
    void readFrames();
    void write(const StabilizedFrame& frame);
    void warnAboutCoverage(RunMessages& messages) const;
    void warnAboutVideo(RunMessages& messages) const;

    const StabilizeOptions& options_;
    const ClipInputs& clip_;
    const ClipSettings& settings_;
    MotionSamples motion_;
    VideoReader& video_;
    RunRecord& record_;
    ClipOutput output_;
    std::optional<PathObserver> observer_;  // none if nobody asks for the path
    std::optional<SessionWriter> session_;  // likewise
    Engine engine_;
    ShakeComparison shake_;
    std::optional<Progress> progress_;
    ObservedPath path_;  // of the frame that the engine gives out next
    size_t taken_ = 0;
    double firstTime_ = 0.0;  // seconds on the frames' clock but for the time offset
    double lastTime_ = 0.0;
};

}  // namespace framehold
