#pragma once

#include "stabilize/stabilize_options.h"

#include <exception>
#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Options of `framehold stabilize`, for any number of clips.
struct BatchOptions {
    std::vector<std::string> inputs;  // see findClips
    StabilizeOptions each;            // without the video; files to write are patterns, see nameFor
    int parallel = 1;                 // clips at a time
    bool skipsExisting = false;       // leaves out clips whose results are there
    bool json = false;                // print a summary on standard output
    std::optional<double> sequenceRate;  // frames per second of image sequences
    std::string saveSettings;            // file for the options that are given; empty: none
};

/// Of the result, where no name is given. {same} is the video's extension if it is .mp4, .mov or
/// .mkv, else mp4.
constexpr const char* kStablePattern = "{name}-stable.{same}";

/// The name that `pattern` stands for with a video: {name} is the video's name without extension,
/// {folder} the name of the folder it is in, {ext} its extension. A folder stands for the name that
/// `standard`, a pattern too, gives in it, an empty pattern for that name beside the video; with
/// standard input, for standard output. Throws std::invalid_argument.
std::string nameFor(const std::string& pattern, const std::string& video,
                    const std::string& standard);

/// Clip of a batch.
struct PlannedClip {
    StabilizeOptions options;  // files to write are named
    FoundClip found;           // only the named files where `error` is set
    std::exception_ptr error;  // why its files could not be found, for its own run to throw
    bool isSkipped = false;    // its results are there, and stay
};

/// Throws CLI::ValidationError for options that mean one clip, where there may be several.
void requirePatterns(const StabilizeOptions& each);

/// Every clip, with its files and its engine: where none is asked for, the offline one, unless the
/// clip comes from a pipe or an option is given that only the live one has. What would spoil the run
/// is found here, before the first clip is touched. Throws CLI::ValidationError where options do not
/// go together, and std::runtime_error for folders without clips and where a file would be lost.
std::vector<PlannedClip> planBatch(const BatchOptions& batch);

/// Makes the folders that patterns ask for. Throws std::filesystem::filesystem_error.
void makeFolders(const BatchOptions& batch, const std::vector<PlannedClip>& clips);

}  // namespace framehold
