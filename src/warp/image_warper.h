#pragma once

#include "smoothing/frame_correction.h"
#include "zpr_framehold.h"

namespace qlx::zpr_framehold {

/// Re-renders frames through their corrections.
class ImageWarper {
public:
    virtual ~ImageWarper() = default;
    ImageWarper(const ImageWarper&) = delete;
    ImageWarper& operator=(const ImageWarper&) = delete;

    /// Renders one frame; returns when it is complete. False, with nothing rendered, if the
    /// correction is not well formed.
    virtual bool warp(const ZPR_Image& source, const ZPR_Image& target,
                      const FrameCorrection& correction) = 0;

protected:
    ImageWarper() = default;
};

}  // namespace qlx::zpr_framehold
