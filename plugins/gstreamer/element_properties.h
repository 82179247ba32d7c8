#pragma once

#include "gstreamer/element_settings.h"
#include "gstreamer/frame_filter.h"

#include <gst/gst.h>

namespace framehold {

/// Adds the element's properties to its class.
void installProperties(GObjectClass* type);

/// Sets a property; false if there is none of this number.
bool setProperty(guint number, const GValue& value, ElementSettings& settings);

/// Reads a property; false if there is none of this number.
bool getProperty(guint number, FrameFilter& filter, GValue& value);

}  // namespace framehold
