// What FrameFilter and its neighbours agree on: sizes, buffers and the delay.
#include "gstreamer/frame_filter.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace framehold {

namespace {

/// The size of caps that are fixed and nearest to a size.
void fixateSize(GstCaps* caps, int width, int height) {
    GstStructure* structure = gst_caps_get_structure(caps, 0);
    gst_structure_fixate_field_nearest_int(structure, "width", width);
    gst_structure_fixate_field_nearest_int(structure, "height", height);
}

}  // namespace

bool FrameFilter::setCaps(GstCaps* caps) {
    if (isNegotiated_ && gst_caps_is_equal(inputCaps_.get(), caps)) return true;
    drain();
    if (!gst_video_info_from_caps(&inputInfo_, caps)) return false;
    inputCaps_.reset(gst_caps_ref(caps));
    stream_.width = inputInfo_.width;
    stream_.height = inputInfo_.height;
    stream_.framesPerSecond = 30.0;
    if (inputInfo_.fps_n > 0) {
        stream_.framesPerSecond = static_cast<double>(inputInfo_.fps_n) / inputInfo_.fps_d;
    }
    times_.setFrameRate(stream_.framesPerSecond);
    setVideo();
    gst_pad_check_reconfigure(src_);
    // What a flush cuts short is done again with the next frame.
    return negotiate() || !isRefused_;
}

/// Tries again where downstream has changed its mind meanwhile.
bool FrameFilter::negotiate() {
    while (!negotiateOnce()) {
        if (!gst_pad_check_reconfigure(src_)) return false;
    }
    return true;
}

/// The output has the input's size if downstream takes that, else the nearest that is no larger.
bool FrameFilter::negotiateOnce() {
    const GstHandle<GstCaps> possible(gst_caps_copy(inputCaps_.get()));
    gst_caps_set_simple(possible.get(), "width", GST_TYPE_INT_RANGE, 1, stream_.width, "height",
                        GST_TYPE_INT_RANGE, 1, stream_.height, nullptr);
    GstHandle<GstCaps> wanted(gst_pad_peer_query_caps(src_, possible.get()));
    GstHandle<GstCaps> caps(
        gst_caps_intersect_full(possible.get(), wanted.get(), GST_CAPS_INTERSECT_FIRST));
    const GstHandle<GstCaps> offered(gst_pad_get_pad_template_caps(src_));
    caps.reset(gst_caps_intersect_full(caps.get(), offered.get(), GST_CAPS_INTERSECT_FIRST));
    isRefused_ = gst_caps_is_empty(caps.get());
    if (isRefused_) return false;
    if (gst_caps_can_intersect(inputCaps_.get(), caps.get())) {
        caps.reset(gst_caps_ref(inputCaps_.get()));
    } else {
        caps.reset(gst_caps_truncate(caps.release()));
        caps.reset(gst_caps_make_writable(caps.release()));
        fixateSize(caps.get(), stream_.width, stream_.height);
        caps.reset(gst_caps_fixate(caps.release()));
    }
    GstVideoInfo info;
    if (!gst_video_info_from_caps(&info, caps.get())) return false;
    const GstHandle<GstCaps> current(gst_pad_get_current_caps(src_));
    const bool isSame = current && isNegotiated_ && gst_caps_is_equal(current.get(), caps.get());
    // Buffers of another kind do not change the pictures.
    if (!isSame) drain();
    isNegotiated_ = false;
    stream_.outputWidth = info.width;
    stream_.outputHeight = info.height;
    if (!isSame && !gst_pad_push_event(src_, gst_event_new_caps(caps.get()))) return false;
    const int width = stream_.keepsSize() ? stream_.paddedWidth() : info.width;
    const PaddedFrame padding(info.width, width);
    isNegotiated_ = output_.configure(src_, caps.get(), width, padding.left());
    updateLatency();
    return isNegotiated_;
}

/// A frame leaves when the one that is `delay` frames later has come with its samples.
void FrameFilter::updateLatency() {
    const ElementSettings wanted = settings();
    const ZPR_Param param = libraryParam(wanted, clip_, stream_);
    const double readout = std::max(0.0, param.readoutTime + param.timeOffset);
    const double seconds = (param.delayFrames / stream_.framesPerSecond + readout) /
                           std::max(times_.segment().rate, 1e-3);
    const GstClockTime latency =
        static_cast<GstClockTime>(std::llround(seconds * GST_SECOND)) + wanted.sensorDelay;
    if (latency_.exchange(latency) == latency) return;
    gst_element_post_message(element_, gst_message_new_latency(GST_OBJECT(element_)));
}

}  // namespace framehold
