// What GStreamer calls: all of it hands over to FrameFilter and MotionPad.
#include "gstreamer/framehold_element.h"

#include "gstreamer/element_properties.h"
#include "gstreamer/frame_filter.h"
#include "gstreamer/motion_pad.h"
#include "gstreamer/motion_record.h"
#include "gstreamer/size_caps.h"

#include <exception>
#include <memory>
#include <string>

namespace framehold {

namespace {

/// The C++ part of an element.
struct ElementParts {
    ElementParts(GstElement* element, GstPad* sink, GstPad* src)
        : filter(element, sink, src), motion(filter) {}

    FrameFilter filter;
    MotionPad motion;
};

}  // namespace

}  // namespace framehold

using framehold::ElementParts;
using framehold::FrameFilter;
using framehold::GstHandle;

struct FrameholdElement {
    GstElement base;
    GstPad* sink;
    GstPad* src;
    ElementParts* parts;
};

struct FrameholdElementClass {
    GstElementClass base;
};

G_DEFINE_TYPE(FrameholdElement, framehold_element, GST_TYPE_ELEMENT)

namespace {

#define FRAMEHOLD_VIDEO_CAPS                                               \
    "video/x-raw, format=(string){NV12, NV21}, width=(int)[2, 32766, 2], " \
    "height=(int)[2, 32766, 2], framerate=(fraction)[0/1, 2147483647/1]"

GstStaticPadTemplate sinkTemplate = GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS,
                                                            GST_STATIC_CAPS(FRAMEHOLD_VIDEO_CAPS));
GstStaticPadTemplate srcTemplate = GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS,
                                                           GST_STATIC_CAPS(FRAMEHOLD_VIDEO_CAPS));
GstStaticPadTemplate motionTemplate = GST_STATIC_PAD_TEMPLATE(
    "motion", GST_PAD_SINK, GST_PAD_REQUEST, GST_STATIC_CAPS("application/x-framehold-motion"));

FrameholdElement* elementOf(gpointer object) { return reinterpret_cast<FrameholdElement*>(object); }
FrameFilter& filterOf(gpointer object) { return elementOf(object)->parts->filter; }

GstFlowReturn chainVideo(GstPad*, GstObject* parent, GstBuffer* buffer) {
    return filterOf(parent).chain(GstHandle<GstBuffer>(buffer));
}

gboolean videoEvent(GstPad* pad, GstObject* parent, GstEvent* event) {
    FrameFilter& filter = filterOf(parent);
    switch (GST_EVENT_TYPE(event)) {
        case GST_EVENT_CAPS: {
            GstCaps* caps = nullptr;
            gst_event_parse_caps(event, &caps);
            const bool isTaken = filter.setCaps(caps);
            gst_event_unref(event);
            return isTaken;
        }
        case GST_EVENT_SEGMENT: {
            const GstSegment* segment = nullptr;
            gst_event_parse_segment(event, &segment);
            if (segment->format != GST_FORMAT_TIME) {
                gst_event_unref(event);
                return FALSE;
            }
            filter.drain();
            filter.setSegment(*segment);
            break;
        }
        case GST_EVENT_STREAM_START:
        case GST_EVENT_GAP:
        case GST_EVENT_SEGMENT_DONE:
        case GST_EVENT_EOS:
            filter.drain();
            break;
        case GST_EVENT_FLUSH_START:
            filter.setFlushing(true);
            break;
        case GST_EVENT_FLUSH_STOP: {
            gboolean resetsTime = TRUE;
            gst_event_parse_flush_stop(event, &resetsTime);
            filter.setFlushing(false);
            filter.flush(resetsTime);
            break;
        }
        default:
            break;
    }
    return gst_pad_event_default(pad, parent, event);
}

gboolean videoQuery(GstPad* pad, GstObject* parent, GstQuery* query) {
    switch (GST_QUERY_TYPE(query)) {
        case GST_QUERY_CAPS:
            framehold::answerInputCaps(elementOf(parent)->src, pad, query);
            return TRUE;
        case GST_QUERY_ALLOCATION:
            return framehold::answerAllocation(query);
        case GST_QUERY_DRAIN:
            filterOf(parent).drain();
            break;
        default:
            break;
    }
    return gst_pad_query_default(pad, parent, query);
}

gboolean sourceEvent(GstPad* pad, GstObject* parent, GstEvent* event) {
    if (GST_EVENT_TYPE(event) == GST_EVENT_QOS) filterOf(parent).noteQos(event);
    if (GST_EVENT_TYPE(event) == GST_EVENT_SEEK) {
        gdouble rate = 1.0;
        gst_event_parse_seek(event, &rate, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
        if (rate < 0.0) {
            // Frames would come in the order in which nothing can be smoothed.
            gst_event_unref(event);
            return FALSE;
        }
    }
    return gst_pad_event_default(pad, parent, event);
}

gboolean sourceQuery(GstPad* pad, GstObject* parent, GstQuery* query) {
    FrameholdElement* self = elementOf(parent);
    switch (GST_QUERY_TYPE(query)) {
        case GST_QUERY_CAPS:
            framehold::answerOutputCaps(self->sink, pad, query);
            return TRUE;
        case GST_QUERY_LATENCY: {
            if (!gst_pad_peer_query(self->sink, query)) return FALSE;
            gboolean isLive = FALSE;
            GstClockTime least = 0, most = GST_CLOCK_TIME_NONE;
            gst_query_parse_latency(query, &isLive, &least, &most);
            const GstClockTime own = self->parts->filter.latency();
            least += own;
            if (GST_CLOCK_TIME_IS_VALID(most)) most += own;
            gst_query_set_latency(query, isLive, least, most);
            return TRUE;
        }
        default:
            return gst_pad_query_default(pad, parent, query);
    }
}

GstFlowReturn chainMotion(GstPad*, GstObject* parent, GstBuffer* buffer) {
    const GstHandle<GstBuffer> owned(buffer);
    std::string error;
    GstFlowReturn flow = GST_FLOW_ERROR;
    try {
        flow = elementOf(parent)->parts->motion.chain(buffer, error);
    } catch (const std::exception& exception) {
        error = exception.what();
    }
    if (!error.empty()) {
        GST_ELEMENT_ERROR(parent, STREAM, FORMAT, ("%s", error.c_str()), (nullptr));
    }
    return flow;
}

/// Nothing of the motion stream goes on downstream.
gboolean motionEvent(GstPad*, GstObject* parent, GstEvent* event) {
    ElementParts& parts = *elementOf(parent)->parts;
    switch (GST_EVENT_TYPE(event)) {
        case GST_EVENT_SEGMENT: {
            const GstSegment* segment = nullptr;
            gst_event_parse_segment(event, &segment);
            parts.motion.setSegment(*segment);
            break;
        }
        case GST_EVENT_STREAM_START:
            parts.filter.motion().setEnded(false);
            break;
        case GST_EVENT_EOS:
            parts.filter.motion().setEnded(true);
            break;
        case GST_EVENT_FLUSH_START:
            parts.filter.motion().setInputFlushing(true);
            break;
        case GST_EVENT_FLUSH_STOP:
            parts.filter.motion().setInputFlushing(false);
            parts.filter.motion().setEnded(false);
            parts.motion.reset();
            break;
        default:
            break;
    }
    gst_event_unref(event);
    return TRUE;
}

gboolean pushSensor(FrameholdElement* self, guint type, gdouble time, gdouble x, gdouble y,
                    gdouble z, gdouble w) {
    try {
        const ZPR_SensorData sample{static_cast<int32_t>(type), time, {x, y, z, w}};
        return self->parts->filter.pushSample(sample);
    } catch (const std::exception& error) {
        GST_ELEMENT_ERROR(self, LIBRARY, SETTINGS, ("%s", error.what()), (nullptr));
        return FALSE;
    }
}

GstPad* requestPad(GstElement* element, GstPadTemplate* padTemplate, const gchar*, const GstCaps*) {
    GstPad* pad = gst_pad_new_from_template(padTemplate, "motion");
    gst_pad_set_chain_function(pad, chainMotion);
    gst_pad_set_event_function(pad, motionEvent);
    gst_pad_set_active(pad, TRUE);
    if (gst_element_add_pad(element, pad)) return pad;
    // There is one already; the pad that could not be added is gone.
    return nullptr;
}

void releasePad(GstElement* element, GstPad* pad) {
    framehold::MotionQueue& motion = filterOf(element).motion();
    // What streams into the pad may wait for room until frames come again.
    motion.setInputFlushing(true);
    gst_pad_set_active(pad, FALSE);
    motion.setInputFlushing(false);
    motion.setEnded(false);
    gst_element_remove_pad(element, pad);
}

GstStateChangeReturn changeState(GstElement* element, GstStateChange change) {
    ElementParts& parts = *elementOf(element)->parts;
    switch (change) {
        case GST_STATE_CHANGE_READY_TO_PAUSED:
            try {
                parts.filter.start();
            } catch (const std::exception& error) {
                GST_ELEMENT_ERROR(element, RESOURCE, OPEN_READ, ("%s", error.what()), (nullptr));
                return GST_STATE_CHANGE_FAILURE;
            }
            parts.filter.setFlushing(false);
            parts.filter.motion().setInputFlushing(false);
            break;
        case GST_STATE_CHANGE_PAUSED_TO_READY:
            parts.filter.setFlushing(true);
            parts.filter.motion().setInputFlushing(true);
            break;
        default:
            break;
    }
    const GstStateChangeReturn result =
        GST_ELEMENT_CLASS(framehold_element_parent_class)->change_state(element, change);
    if (change == GST_STATE_CHANGE_PAUSED_TO_READY) {
        parts.motion.reset();
        parts.filter.stop();
    }
    return result;
}

void setProperty(GObject* object, guint number, const GValue* value, GParamSpec* spec) {
    bool isKnown = false;
    filterOf(object).changeSettings([&](framehold::ElementSettings& settings) {
        isKnown = framehold::setProperty(number, *value, settings);
    });
    if (!isKnown) G_OBJECT_WARN_INVALID_PROPERTY_ID(object, number, spec);
}

void getProperty(GObject* object, guint number, GValue* value, GParamSpec* spec) {
    if (framehold::getProperty(number, filterOf(object), *value)) return;
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, number, spec);
}

void finalize(GObject* object) {
    delete elementOf(object)->parts;
    G_OBJECT_CLASS(framehold_element_parent_class)->finalize(object);
}

GstPad* addPad(FrameholdElement* self, GstStaticPadTemplate& padTemplate) {
    GstPad* pad = gst_pad_new_from_static_template(&padTemplate, padTemplate.name_template);
    gst_element_add_pad(GST_ELEMENT(self), pad);
    return pad;
}

}  // namespace

static void framehold_element_class_init(FrameholdElementClass* type) {
    GObjectClass* object = G_OBJECT_CLASS(type);
    object->set_property = setProperty;
    object->get_property = getProperty;
    object->finalize = finalize;
    framehold::installProperties(object);
    g_signal_new_class_handler("push-sensor", G_TYPE_FROM_CLASS(type),
                               static_cast<GSignalFlags>(G_SIGNAL_RUN_LAST | G_SIGNAL_ACTION),
                               G_CALLBACK(pushSensor), nullptr, nullptr, nullptr, G_TYPE_BOOLEAN, 6,
                               G_TYPE_UINT, G_TYPE_DOUBLE, G_TYPE_DOUBLE, G_TYPE_DOUBLE,
                               G_TYPE_DOUBLE, G_TYPE_DOUBLE);
    GstElementClass* element = GST_ELEMENT_CLASS(type);
    element->change_state = changeState;
    element->request_new_pad = requestPad;
    element->release_pad = releasePad;
    gst_element_class_add_static_pad_template(element, &sinkTemplate);
    gst_element_class_add_static_pad_template(element, &srcTemplate);
    gst_element_class_add_static_pad_template(element, &motionTemplate);
    gst_element_class_set_static_metadata(element, "Video stabilizer", "Filter/Effect/Video",
                                          "Stabilizes video by the motion sensors of its camera",
                                          "The Framehold developers");
}

static void framehold_element_init(FrameholdElement* self) {
    self->sink = addPad(self, sinkTemplate);
    gst_pad_set_chain_function(self->sink, chainVideo);
    gst_pad_set_event_function(self->sink, videoEvent);
    gst_pad_set_query_function(self->sink, videoQuery);
    self->src = addPad(self, srcTemplate);
    gst_pad_set_event_function(self->src, sourceEvent);
    gst_pad_set_query_function(self->src, sourceQuery);
    self->parts = new ElementParts(GST_ELEMENT(self), self->sink, self->src);
}

namespace framehold {

GType frameholdElementType() { return framehold_element_get_type(); }

}  // namespace framehold
