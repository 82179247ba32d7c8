#pragma once

#include "common/output_file.h"
#include "math/quaternion.h"
#include "zpr_framehold.h"

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace framehold {

/// Record of one output frame.
struct FrameRecord {
    double time;  // seconds, of the first row, on the motion log's clock
    /// Orientations from device to world; none where the log does not reach the frame.
    std::optional<qlx::zpr_framehold::Quaternion> measured;
    std::optional<qlx::zpr_framehold::Quaternion> corrected;  // of the virtual camera
    /// Share of the margin between output window and input border that the correction takes up:
    /// 0 for the centred crop, 1 where a corner touches the border.
    double marginUsed = 0.0;
    double milliseconds = 0.0;  // that stabilizing it took
    double zoom = 1.0;          // of the virtual camera, see View
};

/// Processor time of the stages of a run, each with its name, in seconds. It is that of the whole
/// program: of clips that are stabilized at the same time, that of all.
using StageTimes = std::vector<std::pair<std::string, double>>;

/// Measures the processor time of a stage.
class StageClock {
public:
    /// Adds the stage that ends now, and began when the one before ended, or the clock was made.
    void end(const char* stage, StageTimes& times);

private:
    std::clock_t start_ = std::clock();
};

/// Shake of a source and of what was made of it: ClipMeasures::displacement as a share of the
/// picture's width.
struct ShakeAmounts {
    double before = 0.0;
    double after = 0.0;

    /// True if the result is shakier by what no cropping of a still picture explains.
    bool isWorse() const { return after >= 1.05 * before + 3e-4; }
};

/// Record of the stabilization of a clip.
struct RunRecord {
    std::string input;
    std::string output;
    std::string motionLog;
    std::string engine;  // by name
    ZPR_Param param{};
    bool choosesSmoothing = false;    // for every frame, up to the level of `param`
    double meanSmoothingLevel = 0.0;  // over the frames, if so
    std::string axes;                 // letters, as AxisMapping::fromLetters takes them
    std::string zoom = "fixed";       // or "dynamic"
    double horizon = 0.0;             // percent of the roll that was to be levelled
    bool isCalibrated = false;        // with the clip itself
    std::string misfit;  // how the log does not fit the pictures; empty: nothing was found
    std::string remedy;  // options that make it fit; empty: none are known
    std::optional<ShakeAmounts> shake;  // none: not measured
    double framesPerSecond = 0.0;
    double secondsTaken = 0.0;
    StageTimes stageTimes;       // not saved
    int64_t framesExpected = 0;  // of the input, 0 if not known
    std::vector<std::string> notes;
    std::vector<std::string> warnings;
    std::vector<std::string> losses;  // those warnings that make the exit code 3
    std::vector<FrameRecord> frames;
};

/// Writes a run as JSON, for a report that is made later. Throws std::runtime_error.
void saveRunRecord(const OutputName& file, const RunRecord& run);

/// Reads what `saveRunRecord` wrote. Throws FileError with the field.
RunRecord loadRunRecord(const std::string& path);

}  // namespace framehold
