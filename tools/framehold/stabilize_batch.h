#pragma once

#include "framehold/stabilize_options.h"

#include <string>
#include <vector>

namespace framehold {

/// What one call of `framehold stabilize` does: any number of clips.
struct BatchOptions {
    std::vector<std::string> inputs;  // see findClips
    StabilizeOptions each;            // `video` is not used; names of files to write are patterns
    int parallel = 1;                 // clips at a time
    bool json = false;                // print a summary on standard output
};

/// Stabilizes all clips. One that fails does not stop the others.
/// Throws CLI::ValidationError, before anything is done, where options do not go together; what
/// went wrong if there is one clip; std::runtime_error if some of several failed; Interrupted.
void stabilizeAll(const BatchOptions& options);

}  // namespace framehold
