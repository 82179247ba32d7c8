#pragma once

#include <string>
#include <string_view>

namespace framehold {

/// Names that apps give to a video and to what they log with it. {name} is the video's name without
/// its extension. Case does not matter.
struct LogLayout {
    std::string_view video;          // {name} in lower case; empty: any
    std::string_view motion;         // the gyroscope's log, or that of both sensors, or an archive
    std::string_view frames;         // times of the frames; empty: none
    std::string_view metadata = {};  // of each frame; empty: none
};

/// All layouts that are known, see docs/motion-logs.md.
constexpr LogLayout kLogLayouts[] = {
    {"", "{name}gyro.csv", "{name}_timestamps.csv"},
    {"", "{name}_gyro.csv", "{name}_timestamps.csv"},
    {"movie", "gyro_accel.csv", "frame_timestamps.txt", "movie_metadata.csv"},
    {"", "Gyroscope.csv", ""},
    {"video_recording", "video_meta.pb3", ""},
    {"", "{name}.zip", ""},
    {"", "*.zip", ""},
};

/// Folders in which a video's logs are looked for, from the video's own: {name} as above, {time} the
/// name without the text up to the first _, {date} and {day} the first eight digits in the name as
/// 20231114 and 2023-11-14.
constexpr std::string_view kLogFolders[] = {"", "{name}", "{time}", "{date}", "{day}"};

/// Files that belong to a video; empty: none.
struct PairedLogs {
    std::string motion;
    std::string frames;
    std::string metadata;
    std::string layout;  // pattern of the log's name, with its folder if that is another
};

/// Looks for the logs of a video as apps write them. A log whose name does not have the video's is
/// taken only if no other video is in its folder. Archives are looked at only where nothing else is
/// found, that of the video's name first; others must hold a file of a gyroscope's name.
/// Throws FileError with all candidates if there are several logs.
PairedLogs findPairedLogs(const std::string& video);

}  // namespace framehold
