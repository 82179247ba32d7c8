#pragma once

#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Pictures of a clip in files of their own, whose names differ in a number. A pattern stands for
/// them, such as frames/frame-%04d.png: %d in the file's name is the number, %04d the number with
/// zeros before it up to four digits, %% a percent sign.
struct ImageSequence {
    std::string folder;              // with a slash at its end, or empty
    std::string pattern;             // without the folder
    std::vector<std::string> files;  // in order, numbered without gaps
    int first = 0;                   // number of the first file
};

/// The sequence that a path is the pattern of. None if there is a file of that very name, if the
/// name is no pattern, or if no regular file fits it. Throws FileError if a number is missing.
std::optional<ImageSequence> findImageSequence(const std::string& path);

/// True if `findImageSequence` finds one, be it with gaps.
bool isImageSequence(const std::string& path);

/// Path beside a video and named as it is, with another end. Sequences are named by what is before
/// the number, without separators, or as their folder if that is nothing.
std::string besideVideo(const std::string& video, const std::string& end);

}  // namespace framehold
