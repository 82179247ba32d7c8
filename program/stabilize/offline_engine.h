#pragma once

#include "rendering/frame_renderer.h"
#include "stabilize/clip_engine.h"
#include "stabilize/offline_plan.h"

namespace framehold {

/// Renders the frames of a clip as a plan says.
class OfflineEngine final : public ClipEngine {
public:
    /// plan: borrowed. keepsOriginals: gives results their original's pixels.
    OfflineEngine(const OfflinePlan& plan, bool keepsOriginals, Sink sink)
        : plan_(plan), keepsOriginals_(keepsOriginals), sink_(std::move(sink)),
          renderer_(plan.source, plan.output, {0, plan.shifts}) {}

    void push(const AVFrame& frame, double time) override;
    void finish(double /*framePeriod*/) override {}

private:
    const OfflinePlan& plan_;
    bool keepsOriginals_;
    Sink sink_;
    FrameRenderer renderer_;
    size_t next_ = 0;
};

}  // namespace framehold
