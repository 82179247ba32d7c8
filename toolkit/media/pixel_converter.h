#pragma once

#include "media/libav.h"

namespace framehold {

/// Part of a frame from its top left corner, in pixels.
struct FrameArea {
    int width;
    int height;
};

/// Converts frames from one pixel format to another, levels by the color_range of both frames.
/// Chroma of half width is taken to sit on the left luma column of its pair, as in MPEG-2 and
/// H.264; RGB is converted with the matrix of the other frame's colorspace.
class PixelConverter {
public:
    /// Fills `to`, which must be writable. Scales only if the areas differ. Areas may be odd where
    /// the planes have room for all chroma. Throws std::runtime_error if there is no such
    /// conversion.
    void convert(const AVFrame& from, FrameArea fromArea, AVFrame& to, FrameArea toArea);

private:
    /// Parameters of a scaler.
    struct Task {
        FrameArea from;
        FrameArea to;
        AVPixelFormat fromFormat;
        AVPixelFormat toFormat;
        bool fromFullRange;
        bool toFullRange;
        AVColorSpace matrix;

        bool operator==(const Task& other) const;

        /// True if the pixels stay as they are.
        bool isCopy() const;
    };

    static AvPtr<SwsContext> makeScaler(const Task& task);

    Task task_{};
    AvPtr<SwsContext> scaler_;  // made for task_; null at first
};

bool isRgb(AVPixelFormat format);

}  // namespace framehold
