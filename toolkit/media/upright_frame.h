#pragma once

#include "media/video_reader.h"

namespace framehold {

/// Quarter turns clockwise, 0 to 3, by which the pictures of a video are to be turned to be seen upright,
/// as its container says; 0 where that says nothing, another angle or a mirrored picture.
int quarterTurns(const VideoReader& video);

/// A two-plane 4:2:0 frame of even size turned clockwise by 0 to 3 quarters. Shares the frame's samples
/// where there is nothing to turn.
AvPtr<AVFrame> turned(const AVFrame& frame, int quarterTurns);

/// Size of a frame that has been turned.
inline FrameArea turned(FrameArea size, int quarterTurns) {
    return quarterTurns % 2 == 0 ? size : FrameArea{size.height, size.width};
}

}  // namespace framehold
