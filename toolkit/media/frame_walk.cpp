#include "media/frame_walk.h"

namespace framehold {

const AVFrame* FrameWalk::next() {
    const AVFrame* frame = reader_.next();
    if (frame == nullptr) return nullptr;
    const double time = static_cast<double>(frame->pts) * av_q2d(reader_.timeBase());
    if (!started_) first_ = time;
    started_ = true;
    time_ = time - first_;
    return frame;
}

const AVFrame* FrameWalk::seek(double time) {
    const AVFrame* frame = next();
    while (frame != nullptr && time_ < time - 0.5 / reader_.framesPerSecond()) frame = next();
    return frame;
}

}  // namespace framehold
