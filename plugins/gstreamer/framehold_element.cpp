#include "gstreamer/framehold_element.h"

#include "gstreamer/motion_record.h"

struct FrameholdElement {
    GstElement base;
};

struct FrameholdElementClass {
    GstElementClass base;
};

G_DEFINE_TYPE(FrameholdElement, framehold_element, GST_TYPE_ELEMENT)

namespace {

#define FRAMEHOLD_VIDEO_CAPS                                                        \
    "video/x-raw, format={NV12, NV21}, width=[2, 32766, 2], height=[2, 32766, 2], " \
    "framerate=[0/1, 2147483647/1]"

GstStaticPadTemplate sinkTemplate = GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS,
                                                            GST_STATIC_CAPS(FRAMEHOLD_VIDEO_CAPS));
GstStaticPadTemplate srcTemplate = GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS,
                                                           GST_STATIC_CAPS(FRAMEHOLD_VIDEO_CAPS));

}  // namespace

static void framehold_element_class_init(FrameholdElementClass* type) {
    GstElementClass* element = GST_ELEMENT_CLASS(type);
    gst_element_class_add_static_pad_template(element, &sinkTemplate);
    gst_element_class_add_static_pad_template(element, &srcTemplate);
    gst_element_class_set_static_metadata(element, "Video stabilizer", "Filter/Effect/Video",
                                          "Stabilizes video by the motion sensors of its camera",
                                          "The Framehold developers");
}

static void framehold_element_init(FrameholdElement* self) {
    gst_element_add_pad(GST_ELEMENT(self), gst_pad_new_from_static_template(&sinkTemplate, "sink"));
    gst_element_add_pad(GST_ELEMENT(self), gst_pad_new_from_static_template(&srcTemplate, "src"));
}

namespace framehold {

GType frameholdElementType() { return framehold_element_get_type(); }

}  // namespace framehold
