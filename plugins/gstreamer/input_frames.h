#pragma once

#include "gstreamer/gst_handles.h"
#include "media/padded_frame.h"
#include "zpr_framehold.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace framehold {

/// Frames on their way into the library: they are copied only where they are padded, or where they do
/// not lie as the library's delay ring takes them.
class InputFrames {
public:
    /// paddedWidth: of the frames that the library gets. isDelayed: they go through its ring.
    InputFrames(const GstVideoInfo& info, int paddedWidth, bool isDelayed)
        : info_(info), isDelayed_(isDelayed), padded_(info.width, paddedWidth),
          paddedWidth_(paddedWidth) {}

    /// Makes a frame the latest one; true if it was copied. Throws std::runtime_error if it cannot be
    /// mapped.
    bool take(GstHandle<GstBuffer> buffer);

    /// The latest frame as the library takes it. It lasts until the next one is taken.
    const ZPR_Image& latest() const { return image_; }
    /// Columns before the content.
    int left() const { return padded_.left(); }

private:
    bool liesRight(const MappedFrame& frame) const;
    void pad(const MappedFrame& frame);
    void copy(const MappedFrame& frame);

    GstVideoInfo info_;
    bool isDelayed_;
    PaddedFrame padded_;
    int paddedWidth_;
    int pitch_ = 0;  // of all delayed frames, once the first one was taken
    GstHandle<GstBuffer> buffer_;
    std::optional<MappedFrame> mapped_;  // of buffer_
    std::vector<uint8_t> copy_;
    ZPR_Image image_{};
};

}  // namespace framehold
