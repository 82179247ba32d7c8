#include "gstreamer/size_caps.h"

#include "gstreamer/gst_handles.h"

#include <initializer_list>

#include <gst/video/gstvideopool.h>

namespace framehold {

namespace {

constexpr int kSmallest = 2;
constexpr int kLargest = 32766;

/// The least or the greatest value of a size in a structure.
int boundOf(const GstStructure* structure, const char* field, bool isLeast) {
    const GValue* value = gst_structure_get_value(structure, field);
    if (value != nullptr && G_VALUE_HOLDS_INT(value)) return g_value_get_int(value);
    if (value != nullptr && GST_VALUE_HOLDS_INT_RANGE(value)) {
        return isLeast ? gst_value_get_int_range_min(value) : gst_value_get_int_range_max(value);
    }
    return isLeast ? kSmallest : kLargest;
}

/// Caps with the other pad's sizes first, then with all that are larger, or smaller.
GstHandle<GstCaps> related(GstCaps* other, bool isLarger) {
    GstHandle<GstCaps> caps(gst_caps_copy(other));
    for (guint i = 0; i < gst_caps_get_size(other); ++i) {
        GstStructure* structure = gst_structure_copy(gst_caps_get_structure(other, i));
        for (const char* field : {"width", "height"}) {
            const int bound = boundOf(structure, field, isLarger);
            gst_structure_set(structure, field, GST_TYPE_INT_RANGE, isLarger ? bound : 1,
                              isLarger ? kLargest + 1 : bound, nullptr);
        }
        caps.reset(gst_caps_merge_structure(caps.release(), structure));
    }
    return caps;
}

void answer(GstPad* other, GstPad* pad, GstQuery* query, bool isLarger) {
    GstCaps* filter = nullptr;
    gst_query_parse_caps(query, &filter);
    const GstHandle<GstCaps> peer(gst_pad_peer_query_caps(other, nullptr));
    const GstHandle<GstCaps> own(gst_pad_get_pad_template_caps(pad));
    GstHandle<GstCaps> caps(
        gst_caps_intersect_full(peer.get(), own.get(), GST_CAPS_INTERSECT_FIRST));
    const GstHandle<GstCaps> sizes = related(caps.get(), isLarger);
    caps.reset(gst_caps_intersect_full(sizes.get(), own.get(), GST_CAPS_INTERSECT_FIRST));
    if (filter != nullptr) {
        caps.reset(gst_caps_intersect_full(filter, caps.get(), GST_CAPS_INTERSECT_FIRST));
    }
    gst_query_set_caps_result(query, caps.get());
}

}  // namespace

void answerInputCaps(GstPad* src, GstPad* sink, GstQuery* query) { answer(src, sink, query, true); }

void answerOutputCaps(GstPad* sink, GstPad* src, GstQuery* query) {
    answer(sink, src, query, false);
}

bool answerAllocation(GstQuery* query) {
    GstCaps* caps = nullptr;
    gboolean wantsPool = FALSE;
    gst_query_parse_allocation(query, &caps, &wantsPool);
    GstVideoInfo info;
    if (caps == nullptr || !gst_video_info_from_caps(&info, caps)) return false;
    gst_query_add_allocation_meta(query, GST_VIDEO_META_API_TYPE, nullptr);
    if (!wantsPool) return true;
    // One frame is kept to be repeated at the end.
    constexpr guint kLeast = 2;
    const auto size = static_cast<guint>(info.size);
    const GstHandle<GstBufferPool> pool(gst_video_buffer_pool_new());
    GstStructure* config = gst_buffer_pool_get_config(pool.get());
    gst_buffer_pool_config_set_params(config, caps, size, kLeast, 0);
    gst_buffer_pool_config_add_option(config, GST_BUFFER_POOL_OPTION_VIDEO_META);
    if (!gst_buffer_pool_set_config(pool.get(), config)) return false;
    gst_query_add_allocation_pool(query, pool.get(), size, kLeast, 0);
    return true;
}

}  // namespace framehold
