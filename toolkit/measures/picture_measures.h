#pragma once

#include "tracking/global_motion.h"

#include <functional>
#include <string>
#include <vector>

namespace framehold {

/// Figures from the pixels of a video.
struct PictureMeasures {
    /// Interframe fidelity (Marcenaro, Vernazza and Regazzoni, "Image stabilization algorithms for
    /// video-surveillance applications", 2001): the mean PSNR between consecutive frames, of luma,
    /// in dB. As published the frames are compared as they are: a camera that pans loses.
    double fidelity = 0.0;
    /// The same after the earlier frame was mapped to the later one by the homography between them,
    /// where they overlap: wobble, blur that changes, depth and noise remain.
    double alignedFidelity = 0.0;
    /// Share of the picture that is black and connected to its edge: 0 to 1, mean and largest.
    double border = 0.0;
    double largestBorder = 0.0;
};

/// motions[i]: from frame i to frame i + 1. `onFrame` is called for each frame. Equal frames count
/// as 100 dB. Throws MediaError.
PictureMeasures measurePictures(const std::string& video, const std::vector<GlobalMotion>& motions,
                                const std::function<void()>& onFrame);

}  // namespace framehold
