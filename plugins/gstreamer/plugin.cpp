#include "gstreamer/framehold_element.h"
#include "gstreamer/iio_source.h"

#define PACKAGE "framehold"

static gboolean registerElements(GstPlugin* plugin) {
    return gst_element_register(plugin, "framehold", GST_RANK_NONE,
                                framehold::frameholdElementType()) &&
           gst_element_register(plugin, "framehold-iiosrc", GST_RANK_NONE,
                                framehold::iioSourceType());
}

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, framehold,
                  "Real-time video stabilization for cameras with motion sensors", registerElements,
                  FRAMEHOLD_VERSION, GST_LICENSE_UNKNOWN, "framehold", "framehold")
