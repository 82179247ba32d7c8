#pragma once

#include "gstreamer/gst_handles.h"
#include "zpr_framehold.h"

#include <cstdint>
#include <vector>

namespace framehold {

/// Frames on their way out of the library, in buffers that downstream wants. Those of padded frames
/// lie in wider ones if downstream can take that, else they are copied.
class OutputFrames {
public:
    OutputFrames() = default;
    ~OutputFrames() { stop(); }
    OutputFrames(const OutputFrames&) = delete;
    OutputFrames& operator=(const OutputFrames&) = delete;

    /// Agrees on buffers with what is behind a pad. paddedWidth, left: of the frames that the library
    /// writes, and the columns in them before the content. False if there is no memory.
    bool configure(GstPad* pad, GstCaps* caps, int paddedWidth, int left);
    void stop();

    /// Gets a buffer and lets `render` write a frame into it that was black before. Throws
    /// std::runtime_error if the buffer cannot be written.
    template <class Render>
    GstFlowReturn make(GstHandle<GstBuffer>& buffer, const Render& render) {
        GstBuffer* acquired = nullptr;
        const GstFlowReturn flow = gst_buffer_pool_acquire_buffer(pool_.get(), &acquired, nullptr);
        if (flow != GST_FLOW_OK) return flow;
        buffer.reset(acquired);
        const MappedFrame frame = map(acquired);
        ZPR_Image image = imageIn(frame);
        render(image);
        finish(frame);
        return GST_FLOW_OK;
    }

    /// Size of what the library writes, without planes.
    ZPR_Image description() const;
    /// True if each frame is copied.
    bool isCopied() const { return isCopied_; }

private:
    bool isPadded() const { return paddedWidth_ != info_.width; }
    bool usePool(GstBufferPool* pool, GstCaps* caps, GstQuery* query, bool hasMeta);
    MappedFrame map(GstBuffer* buffer) const;
    ZPR_Image imageIn(const MappedFrame& frame);
    void finish(const MappedFrame& frame);

    GstVideoInfo info_{};
    int paddedWidth_ = 0;
    int left_ = 0;
    bool isCopied_ = false;
    GstHandle<GstBufferPool> pool_;
    std::vector<uint8_t> scratch_;  // a padded frame
};

}  // namespace framehold
