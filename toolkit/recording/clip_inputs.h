#pragma once

#include "media/video_reader.h"
#include "motion/clip_metadata.h"
#include "motion/motion_log.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// The clips that a list of inputs names: files and "-" (standard input) as they are, and in place
/// of a folder all videos in it and below, known by their extension, in order of their names.
/// Results of earlier runs, which are marked so or have names that end in "-stable", are left out of
/// folders.
/// Throws std::runtime_error for folders that cannot be read or hold no video.
std::vector<std::string> findClips(const std::vector<std::string>& inputs);

/// The files of one clip; empty: not named, or not there.
struct ClipFiles {
    std::string video;                // "-" for standard input
    std::string metadata;             // clip.json
    std::string motion;               // log
    std::string frames;               // frame times in place of those of the metadata
    bool allowsOutsidePaths = false;  // the metadata may name files outside of its folder
    bool ignoresMotion = false;       // no log is looked for, and none that is named is read
    std::string frameMetadata{};      // table of what is logged of each frame
    std::string motionRule{};         // by which `motion` was found, for the user
};

/// A clip's files and what its clip.json says: that names other files, so it is read to find them.
struct FoundClip {
    ClipFiles files;
    ClipMetadata metadata;
};

/// Reads the clip.json that is named. If none is, looks beside the video: for metadata in a .json
/// file of the video's name or in a clip.json that is the video's; and, if these name no motion
/// log, for one of the video's name (see besideVideo), then for logs as apps name them (see
/// findPairedLogs), with the times of the frames if none are given. Throws FileError for metadata that
/// cannot be read, and for several logs of which none is the video's by its name.
FoundClip findClipFiles(const ClipFiles& named);

/// Paths of all files that are opened to find a clip's files and to load its inputs, as far as they
/// are known without reading a log. Some need not be there.
std::vector<std::string> filesRead(const ClipFiles& named, const FoundClip& found);

/// Properties of a video that settings depend on.
struct VideoProperties {
    int width = 0;  // pixels of the frames that are read, which are even
    int height = 0;
    double framesPerSecond = 0.0;
    int64_t expectedFrames = 0;  // 0: not known
};

VideoProperties propertiesOf(const VideoReader& video);

/// All that is known of a clip before its pictures are looked at, every file read once.
struct ClipInputs {
    ClipFiles files;
    VideoProperties video;
    ClipMetadata metadata;
    std::optional<MotionLog> log;  // in `files.motion`, which is the video where it has telemetry
    FrameMetadata usualFrame{};  // medians of what is logged of each frame; exposure: if it is used
    std::string usualFrameFile{};  // that they are from
};

/// Seconds of a frame on the frames' clock: by the table of frame times if there is one, else by its
/// own timestamp. number: of frames before it. Throws std::runtime_error if the table has fewer
/// frames.
double timeOf(const AVFrame& frame, size_t number, const ClipInputs& clip,
              const VideoReader& video);

/// Throws FileError for a log that cannot be read.
ClipInputs loadClipInputs(FoundClip clip, const VideoProperties& video);

}  // namespace framehold
