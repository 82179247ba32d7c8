#pragma once

#include <string>

namespace framehold {

/// From now on FFmpeg's libraries print nothing. The last error that they told on each thread is
/// kept, since it often says more than their codes.
void keepLibavMessages();

/// Forgets what was told so far on this thread.
void forgetLibavMessage();

/// " (what was told last on this thread)", or nothing.
std::string libavMessage();

}  // namespace framehold
