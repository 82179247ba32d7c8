#pragma once

#include "media/libav.h"

#include <string>

namespace framehold {

/// Marks a file whose header is not yet written as a result of this program, by the name of the
/// encoder of its video. AVI, FLV and transport streams hold no such name and get a tag of the file;
/// M4V, 3GP, program streams and YUV4MPEG2 hold neither.
void markAsResult(AVFormatContext& file, AVStream& video, const std::string& encoder);

bool isMarkedAsResult(const AVFormatContext& file);

/// True if a file can be opened and is marked as a result of this program.
bool isResult(const std::string& path);

/// True if a file can be opened and its video is there up to the end that the file states.
bool isCompleteVideo(const std::string& path);

}  // namespace framehold
