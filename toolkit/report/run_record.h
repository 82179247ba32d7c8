#pragma once

#include "common/output_file.h"
#include "math/quaternion.h"
#include "zpr_framehold.h"

#include <cstdint>
#include <optional>
#include <string>
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
};

/// Record of the stabilization of a clip.
struct RunRecord {
    std::string input;
    std::string output;
    std::string motionLog;
    std::string engine;  // by name
    ZPR_Param param{};
    std::string axes;  // letters, as AxisMapping::fromLetters takes them
    double framesPerSecond = 0.0;
    double secondsTaken = 0.0;
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
