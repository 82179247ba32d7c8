#pragma once

#include <gst/gst.h>

namespace framehold {

/// Type of the element `framehold-iiosrc`, which gives the samples of a gyroscope and an
/// accelerometer of Linux' industrial I/O.
GType iioSourceType();

}  // namespace framehold
