#include "gstreamer/output_frames.h"

#include <algorithm>
#include <stdexcept>

#include <gst/video/gstvideopool.h>

namespace framehold {

namespace {

/// The pool that downstream offers, if there is one.
GstHandle<GstBufferPool> offeredPool(GstQuery* query) {
    GstBufferPool* pool = nullptr;
    if (gst_query_get_n_allocation_pools(query) > 0) {
        gst_query_parse_nth_allocation_pool(query, 0, &pool, nullptr, nullptr, nullptr);
    }
    return GstHandle<GstBufferPool>(pool);
}

}  // namespace

bool OutputFrames::configure(GstPad* pad, GstCaps* caps, int paddedWidth, int left) {
    stop();
    if (!gst_video_info_from_caps(&info_, caps)) return false;
    paddedWidth_ = paddedWidth;
    left_ = left;
    const GstHandle<GstQuery> query(gst_query_new_allocation(caps, TRUE));
    gst_pad_peer_query(pad, query.get());
    const bool hasMeta =
        gst_query_find_allocation_meta(query.get(), GST_VIDEO_META_API_TYPE, nullptr) != 0;
    isCopied_ = isPadded() && !hasMeta;
    // Nobody else's pool has room for the padding.
    if (!isPadded()) {
        const GstHandle<GstBufferPool> offered = offeredPool(query.get());
        if (offered && usePool(offered.get(), caps, query.get(), hasMeta)) return true;
    }
    const GstHandle<GstBufferPool> own(gst_video_buffer_pool_new());
    return usePool(own.get(), caps, query.get(), hasMeta);
}

bool OutputFrames::usePool(GstBufferPool* pool, GstCaps* caps, GstQuery* query, bool hasMeta) {
    guint least = 0, most = 0, size = static_cast<guint>(info_.size);
    if (gst_query_get_n_allocation_pools(query) > 0) {
        guint wanted = 0;
        gst_query_parse_nth_allocation_pool(query, 0, nullptr, &wanted, &least, &most);
        size = std::max(size, wanted);
    }
    GstStructure* config = gst_buffer_pool_get_config(pool);
    if (hasMeta && gst_buffer_pool_has_option(pool, GST_BUFFER_POOL_OPTION_VIDEO_META)) {
        gst_buffer_pool_config_add_option(config, GST_BUFFER_POOL_OPTION_VIDEO_META);
    }
    if (isPadded() && !isCopied_) {
        GstVideoAlignment padding;
        gst_video_alignment_reset(&padding);
        padding.padding_left = static_cast<guint>(left_);
        padding.padding_right = static_cast<guint>(paddedWidth_ - info_.width - left_);
        gst_buffer_pool_config_add_option(config, GST_BUFFER_POOL_OPTION_VIDEO_ALIGNMENT);
        gst_buffer_pool_config_set_video_alignment(config, &padding);
    }
    gst_buffer_pool_config_set_params(config, caps, size, least, most);
    if (gst_query_get_n_allocation_params(query) > 0) {
        GstAllocator* allocator = nullptr;
        GstAllocationParams params;
        gst_query_parse_nth_allocation_param(query, 0, &allocator, &params);
        gst_buffer_pool_config_set_allocator(config, allocator, &params);
        if (allocator != nullptr) gst_object_unref(allocator);
    }
    if (!gst_buffer_pool_set_config(pool, config)) {
        // The pool has changed what it cannot do; that may be good enough.
        config = gst_buffer_pool_get_config(pool);
        if (!gst_buffer_pool_config_validate_params(config, caps, size, least, most)) {
            gst_structure_free(config);
            return false;
        }
        if (!gst_buffer_pool_set_config(pool, config)) return false;
    }
    if (!gst_buffer_pool_set_active(pool, TRUE)) return false;
    pool_.reset(GST_BUFFER_POOL(gst_object_ref(pool)));
    return true;
}

void OutputFrames::stop() {
    if (pool_) gst_buffer_pool_set_active(pool_.get(), FALSE);
    pool_.reset();
}

ZPR_Image OutputFrames::description() const {
    ZPR_Image image{};
    image.format = ZPR_FORMAT_SEMIPLANAR_1;
    image.width = paddedWidth_;
    image.height = info_.height;
    image.pitch[0] = image.pitch[1] = paddedWidth_;
    return image;
}

MappedFrame OutputFrames::map(GstBuffer* buffer) const {
    return MappedFrame(info_, buffer, GST_MAP_WRITE);
}

ZPR_Image OutputFrames::imageIn(const MappedFrame& frame) {
    if (!frame) throw std::runtime_error("a buffer of the pool for the output cannot be written");
    ZPR_Image image = description();
    const size_t luma = static_cast<size_t>(paddedWidth_) * static_cast<size_t>(info_.height);
    if (isCopied_) scratch_.resize(luma + luma / 2);
    for (int i = 0; i < 2; ++i) {
        if (isCopied_) {
            image.plane[i] = scratch_.data() + (i == 0 ? 0 : luma);
        } else {
            image.plane[i] = frame.plane(i) - left_;
            image.pitch[i] = frame.stride(i);
        }
        // Pixels that have no source are not written.
        const bool isFull = info_.colorimetry.range == GST_VIDEO_COLOR_RANGE_0_255;
        const int value = i == 0 ? (isFull ? 0 : 16) : 128;
        for (int y = 0; y < info_.height >> i; ++y) {
            std::fill_n(image.plane[i] + ptrdiff_t{y} * image.pitch[i], paddedWidth_,
                        static_cast<uint8_t>(value));
        }
    }
    return image;
}

void OutputFrames::finish(const MappedFrame& frame) {
    if (!isCopied_) return;
    const uint8_t* from = scratch_.data() + left_;
    for (int i = 0; i < 2; ++i) {
        for (int y = 0; y < info_.height >> i; ++y, from += paddedWidth_) {
            std::copy_n(from, info_.width, frame.plane(i) + ptrdiff_t{y} * frame.stride(i));
        }
    }
}

}  // namespace framehold
