#pragma once

#include "common/lens_distortion.h"
#include "motion/axis_mapping.h"
#include "motion/motion_log.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace framehold {

/// Metadata of a recording, as a clip.json holds it; none of what it lacks.
struct ClipMetadata {
    std::optional<std::string> video;   // file name, as it is written there
    std::optional<int> width;           // pixels
    std::optional<double> focalLength;  // pixels, at this width
    std::optional<LensDistortion> lens;
    std::optional<double> readoutTime;  // seconds
    std::optional<double> timeOffset;   // seconds, added to a frame's timestamp
    std::optional<double> clockDrift;   // seconds that the log's clock gains per second
    std::optional<AxisMapping> axes;
    std::optional<Vec3> gravityHint;       // m/s^2 in device axes, at the start
    std::optional<std::string> motionLog;  // path, with the folder of the clip.json
    std::optional<std::string>
        lensShifts;                     // path of a table of lens shifts, in a picture of `width`
    std::string framesFile;             // path of the file of frameTimes; empty if there is none
    std::vector<double> frameTimes;     // seconds; empty if there is no frames.csv
    std::vector<std::string> warnings;  // of keys that are not known
};

/// Reads the times of frames, in seconds, from a file with the columns frame,timestamp_s, frames
/// counted from 0; or as apps log them, in the first column of a table, in a unit that the size of
/// their steps says. Throws FileError with the line and the column.
std::vector<double> readFrameTimes(const std::string& path);

/// The same from the content of a file. name: of the file, for messages.
std::vector<double> parseFrameTimes(const std::string& name, std::string_view text);

/// Reads shifts of a lens from a file with the columns time_s,x_px,y_px, in order of time. Throws
/// FileError with the line and the column.
std::vector<LensShift> readLensShifts(const std::string& path);

/// Where the files may be that a clip.json names.
enum class NamedPaths {
    kBelow,  // in the folder of the clip.json or below, with no symbolic link that leads out
    kAnywhere,
};

/// Reads a clip.json (keys video, width, focal_px, lens, readout_s, time_offset_s, clock_drift_ppm, axes,
/// gravity_hint_mps2, imu.file, frames_file, lens_shifts_file) and the times of the frames: those in frames_file, none
/// if that is empty, or if it is not there, those in a frames.csv beside the clip.json. All keys
/// are optional. Throws FileError with the key, also for a file elsewhere than `paths` allows.
ClipMetadata readClipMetadata(const std::string& path, NamedPaths paths = NamedPaths::kBelow);

}  // namespace framehold
