#pragma once

#include <map>
#include <string>

namespace framehold {

/// MIME types of the timed metadata in an MP4 or MOV file, by the number of the track: of tracks of
/// type `mett`, whose types FFmpeg does not hand on. Empty for other files; what is broken is left
/// out. Throws FileError if the file cannot be read.
std::map<int, std::string> metadataTypes(const std::string& path);

}  // namespace framehold
