#pragma once

#include <gst/gst.h>

namespace framehold {

/// Type of the element `framehold`, which stabilizes video by the motion of its camera.
GType frameholdElementType();

}  // namespace framehold
