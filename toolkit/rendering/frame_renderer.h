#pragma once

#include "media/pixel_converter.h"
#include "media/task_thread.h"
#include "path/view.h"
#include "rendering/plane_resampler.h"
#include "rendering/source_mesh.h"

#include <functional>
#include <memory>
#include <vector>

namespace framehold {

struct RenderSettings {
    int threads = 0;          // 0: as many as there are processors
    LensShiftTrack shifts{};  // of the source's lens, on the track's clock
};

/// Renders frames as a virtual camera without a rolling shutter would have seen them: each pixel of
/// the result comes from the source's pixel that saw the same direction while its row was read, in
/// one resampling step.
class FrameRenderer {
public:
    /// source: camera of the frames, whose size in pixels may differ from its own by a factor.
    /// output: its size is that of the result.
    FrameRenderer(const PinholeCamera& source, const PinholeCamera& output,
                  RenderSettings settings = {});
    ~FrameRenderer();

    /// The frame as a view sees it, in the planar format of its own (see planarFormat) and with its
    /// properties: times, colours, side data. firstRowTime: on the track's clock. Pixels that the
    /// source did not see are black.
    /// Throws std::runtime_error for a pixel format that cannot be read, and for frames of more
    /// than 30000 pixels a side.
    AvPtr<AVFrame> render(const AVFrame& frame, double firstRowTime, const OrientationTrack& track,
                          const View& view);

private:
    struct Plane;

    void prepare(const AVFrame& frame);

    /// Source samples per sample of the result, for a view's zoom.
    double shrinkingOf(double zoom) const;

    /// Does all work, in no order, on all threads. It must not throw.
    void doAll(const std::vector<std::function<void()>>& work);

    PinholeCamera source_;
    PinholeCamera output_;
    LensShiftTrack shifts_;
    PixelConverter converter_;
    // For frames like the last one.
    int format_ = AV_PIX_FMT_NONE;
    int width_ = 0;
    int height_ = 0;
    AVChromaLocation chromaLocation_ = AVCHROMA_LOC_UNSPECIFIED;
    std::vector<SourceMesh> meshes_;
    std::vector<std::unique_ptr<Plane>> planes_;
    std::vector<std::unique_ptr<TaskThread>> helpers_;  // beside the caller's thread
};

}  // namespace framehold
