#include "recording/clip_inputs.h"

#include "common/image_sequence.h"
#include "common/output_file.h"
#include "common/text_fields.h"
#include "media/results.h"
#include "motion/frame_metadata.h"
#include "motion/log_pairing.h"
#include "motion/motion_log_reader.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>

namespace framehold {

namespace fs = std::filesystem;

namespace {

bool isVideo(const fs::path& path) {
    static const std::set<std::string> kExtensions = {".mp4", ".m4v",  ".mov", ".mkv",  ".webm",
                                                      ".avi", ".3gp",  ".mts", ".m2ts", ".ts",
                                                      ".mpg", ".mpeg", ".y4m"};
    return kExtensions.count(lowerCase(path.extension().string())) > 0;
}

bool isEarlierResult(const fs::path& path) {
    const std::string stem = path.stem().string();
    const std::string end = "-stable";
    const bool isNamedSo =
        stem.size() >= end.size() && stem.compare(stem.size() - end.size(), end.size(), end) == 0;
    return isNamedSo || isResult(path.string());
}

std::vector<std::string> videosIn(const std::string& folder) {
    std::vector<std::string> videos;
    size_t results = 0;
    std::error_code error;
    for (fs::recursive_directory_iterator i(folder, error), end; !error && i != end;
         i.increment(error)) {
        const fs::path& path = i->path();
        if (!isVideo(path) || !fs::is_regular_file(path)) continue;
        if (isEarlierResult(path)) {
            ++results;
        } else {
            videos.push_back(path.string());
        }
    }
    if (error) throw std::runtime_error(fmt::format("{}: {}", folder, error.message()));
    if (videos.empty()) {
        throw std::runtime_error(folder + ": holds no videos" +
                                 (results > 0 ? " but results of earlier runs" : ""));
    }
    std::sort(videos.begin(), videos.end());
    return videos;
}

/// True if the clip.json in the video's folder is this video's: it names it, or no other is there.
bool isMetadataOf(const ClipMetadata& metadata, const fs::path& video) {
    if (metadata.video) return *metadata.video == video.filename();
    int count = 0;
    for (const auto& file : fs::directory_iterator(fs::absolute(video).parent_path())) {
        if (isVideo(file.path()) && !isEarlierResult(file.path())) ++count;
        if (count > 1) return false;
    }
    return count == (isImageSequence(video.string()) ? 0 : 1);
}

ClipMetadata readMetadata(const std::string& path, const ClipFiles& named) {
    return readClipMetadata(path,
                            named.allowsOutsidePaths ? NamedPaths::kAnywhere : NamedPaths::kBelow);
}

/// Places where the metadata of a video may be.
fs::path ownMetadata(const fs::path& video) { return besideVideo(video.string(), ".json"); }
fs::path sharedMetadata(const fs::path& video) { return video.parent_path() / "clip.json"; }

void findMetadata(FoundClip& clip) {
    const fs::path video(clip.files.video);
    const fs::path own = ownMetadata(video);
    const fs::path shared = sharedMetadata(video);
    const bool hasOwn = fs::exists(own);
    if (!hasOwn && !fs::exists(shared)) return;
    const std::string path = (hasOwn ? own : shared).string();
    ClipMetadata metadata = readMetadata(path, clip.files);
    if (!hasOwn && !isMetadataOf(metadata, video)) return;
    clip.files.metadata = path;
    clip.metadata = std::move(metadata);
}

}  // namespace

std::vector<std::string> findClips(const std::vector<std::string>& inputs) {
    std::vector<std::string> clips;
    for (const std::string& input : inputs) {
        if (fs::is_directory(input)) {
            const std::vector<std::string> videos = videosIn(input);
            clips.insert(clips.end(), videos.begin(), videos.end());
        } else {
            clips.push_back(input);
        }
    }
    return clips;
}

namespace {

/// Throws FileError for a log that was found and is no regular file: the other end of a pipe may
/// never come. Logs that the user names may come from one.
void requireRegular(const std::string& log) {
    if (isSpecialFile(log)) throw FileError(log, 0, "is not a regular file");
}

}  // namespace

FoundClip findClipFiles(const ClipFiles& named) {
    FoundClip clip{named, {}};
    const bool looksBeside = named.metadata.empty() && named.video != "-";
    if (!named.metadata.empty()) clip.metadata = readMetadata(named.metadata, named);
    if (looksBeside) findMetadata(clip);
    std::string& motion = clip.files.motion;
    std::string& rule = clip.files.motionRule;
    if (named.ignoresMotion) return clip;
    if (!motion.empty()) {
        rule = "given with --motion";
    } else if (clip.metadata.motionLog) {
        motion = *clip.metadata.motionLog;
        rule = "named by " + clip.files.metadata;
    }
    for (const char* extension : {".gcsv", ".csv", ".txt", ".log"}) {
        if (!motion.empty() || !looksBeside) break;
        const std::string log = besideVideo(named.video, extension);
        if (!fs::exists(log)) continue;
        motion = log;
        rule = std::string("the video's name with ") + extension;
    }
    if (motion.empty() && looksBeside && !isImageSequence(named.video)) {
        PairedLogs logs = findPairedLogs(named.video);
        motion = std::move(logs.motion);
        if (!motion.empty()) rule = "layout " + logs.layout;
        const bool hasTimes = !clip.files.frames.empty() || !clip.metadata.frameTimes.empty();
        if (!hasTimes) clip.files.frames = std::move(logs.frames);
        clip.files.frameMetadata = std::move(logs.metadata);
    }
    if (named.motion.empty()) requireRegular(motion);
    return clip;
}

std::vector<std::string> filesRead(const ClipFiles& named, const FoundClip& found) {
    std::vector<std::string> files = {named.video,
                                      named.metadata,
                                      found.files.frames,
                                      found.files.motion,
                                      found.metadata.framesFile,
                                      found.files.frameMetadata,
                                      found.metadata.lensShifts.value_or("")};
    if (named.metadata.empty() && named.video != "-") {
        files.push_back(ownMetadata(named.video).string());
        files.push_back(sharedMetadata(named.video).string());
    }
    return files;
}

VideoProperties propertiesOf(const VideoReader& video) {
    return {video.width(), video.height(), video.framesPerSecond(), video.expectedFrames()};
}

double timeOf(const AVFrame& frame, size_t number, const ClipInputs& clip,
              const VideoReader& video) {
    const std::vector<double>& times = clip.metadata.frameTimes;
    if (times.empty()) return video.seconds(frame);
    if (number < times.size()) return times[number];
    throw std::runtime_error(fmt::format("{}: has {} frames, the video has more",
                                         clip.metadata.framesFile, times.size()));
}

namespace {

/// Times of all frames that are logged, if there is one for each and they rise; else none.
std::vector<double> loggedTimes(const std::vector<FrameMetadata>& frames, int64_t expectedFrames) {
    std::vector<double> times;
    if (expectedFrames > 0 && frames.size() != static_cast<size_t>(expectedFrames)) return {};
    for (const FrameMetadata& frame : frames) {
        if (!frame.time || (!times.empty() && *frame.time <= times.back())) return {};
        times.push_back(*frame.time);
    }
    return times;
}

/// Leaves out a table of frames that was found by its name alone, if it is of something else.
void dropUnknownTable(ClipInputs& inputs) {
    std::string& table = inputs.files.frameMetadata;
    std::error_code ignored;
    if (table.empty() || (!fs::is_empty(table, ignored) && holdsFrameMetadata(table))) return;
    inputs.metadata.warnings.push_back(fmt::format("{}: not used: {}", table, kNoFrameMetadata));
    table.clear();
}

/// Takes what is logged of each frame, in a table of its own or in the log. Times are those of the middle
/// of the first row's exposure.
void takeFrameMetadata(ClipInputs& inputs) {
    ClipFiles& files = inputs.files;
    ClipMetadata& metadata = inputs.metadata;
    dropUnknownTable(inputs);
    if (files.frameMetadata.empty() && !files.frames.empty() && holdsFrameMetadata(files.frames)) {
        files.frameMetadata = files.frames;
    }
    std::vector<FrameMetadata> frames;
    if (!files.frameMetadata.empty()) {
        frames = readFrameMetadata(files.frameMetadata);
    } else if (inputs.log) {
        frames = inputs.log->frames;
    }
    const std::string& origin = files.frameMetadata.empty() ? files.motion : files.frameMetadata;
    inputs.usualFrame = usualMetadata(frames);
    inputs.usualFrameFile = origin;
    // Times that a clip.json names are those that its author wants.
    const bool areFinal = files.frames.empty() && !metadata.frameTimes.empty();
    if (!files.frames.empty()) {
        metadata.frameTimes = readFrameTimes(files.frames);
        metadata.framesFile = files.frames;
    } else if (!areFinal) {
        metadata.frameTimes = loggedTimes(frames, inputs.video.expectedFrames);
        metadata.framesFile = origin;
        if (metadata.frameTimes.empty() && !files.frameMetadata.empty()) {
            metadata.warnings.push_back(fmt::format(
                "{}: its times are not used: it has {}, the video {}, or they do not rise", origin,
                counted(frames.size(), "row"),
                counted(static_cast<size_t>(inputs.video.expectedFrames), "frame")));
        }
    }
    if (areFinal || metadata.frameTimes.empty()) {
        inputs.usualFrame.exposure.reset();
    } else if (inputs.usualFrame.exposure) {
        moveToMiddleOfExposure(frames, metadata.frameTimes);
    }
}

}  // namespace

ClipInputs loadClipInputs(FoundClip clip, const VideoProperties& video) {
    ClipInputs inputs{std::move(clip.files), video, std::move(clip.metadata), {}};
    ClipFiles& files = inputs.files;
    if (files.ignoresMotion) {
        // No log.
    } else if (!files.motion.empty()) {
        inputs.log = readMotionLog(files.motion);
    } else if (files.video != "-") {
        inputs.log = readVideoTelemetry(files.video);
        if (inputs.log) {
            files.motion = files.video;
            files.motionRule = "telemetry in the video";
        }
    }
    if (inputs.log && inputs.metadata.lensShifts) {
        inputs.log->lensShifts = readLensShifts(*inputs.metadata.lensShifts);
        inputs.log->lensShiftWidth = inputs.metadata.width.value_or(0);
    }
    takeFrameMetadata(inputs);
    return inputs;
}

}  // namespace framehold
