#pragma once

#include "media/video_reader.h"

#include <string>

namespace framehold {

/// Walks over a video by the time since its first frame.
class FrameWalk {
public:
    /// Throws MediaError.
    explicit FrameWalk(const std::string& video) : reader_(video) {}

    const VideoReader& reader() const { return reader_; }

    /// The next frame; null at the end. Throws MediaError.
    const AVFrame* next();

    /// The first of the coming frames that is shown at `time` or later, give or take half a frame;
    /// null if there is none. Throws MediaError.
    const AVFrame* seek(double time);

    /// Seconds from the first frame to the last one returned.
    double time() const { return time_; }

private:
    VideoReader reader_;
    bool started_ = false;
    double first_ = 0.0;
    double time_ = 0.0;
};

}  // namespace framehold
