#pragma once

#include "framehold/stabilize_options.h"

namespace framehold {

/// Stabilizes one recorded clip: reads the video and its motion log, feeds both to the library and
/// writes the result, with the source's timestamps and audio. Tells on standard error what it does.
/// Throws std::exception; nothing stands under the output's name then.
void stabilizeClip(const StabilizeOptions& options);

}  // namespace framehold
