#pragma once

#include <memory>

#include <gst/gst.h>
#include <gst/video/video.h>

namespace framehold {

struct GstUnref {
    void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
    void operator()(GstBufferPool* pool) const { gst_object_unref(pool); }
    void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
    void operator()(GstObject* object) const { gst_object_unref(object); }
    void operator()(GstPad* pad) const { gst_object_unref(pad); }
    void operator()(GstQuery* query) const { gst_query_unref(query); }
};

/// Owned reference to an object of GStreamer.
template <class T>
using GstHandle = std::unique_ptr<T, GstUnref>;

/// Video frame in a buffer, mapped for as long as this is there. The buffer is borrowed.
class MappedFrame {
public:
    MappedFrame(const GstVideoInfo& info, GstBuffer* buffer, GstMapFlags flags)
        : isMapped_(gst_video_frame_map(&frame_, &info, buffer, flags)) {}
    ~MappedFrame() {
        if (isMapped_) gst_video_frame_unmap(&frame_);
    }
    MappedFrame(const MappedFrame&) = delete;
    MappedFrame& operator=(const MappedFrame&) = delete;

    explicit operator bool() const { return isMapped_; }
    uint8_t* plane(int i) const { return static_cast<uint8_t*>(frame_.data[i]); }
    int stride(int i) const { return frame_.info.stride[i]; }

    /// Bytes that are mapped from the start of a plane on.
    size_t bytesFrom(int i) const {
        // All planes are in the first mapping unless the buffer says where they are.
        const GstMapInfo& map = frame_.map[i].data != nullptr ? frame_.map[i] : frame_.map[0];
        return static_cast<size_t>(map.data + map.size - plane(i));
    }

private:
    GstVideoFrame frame_{};
    bool isMapped_;
};

}  // namespace framehold
