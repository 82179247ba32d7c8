#pragma once

#include "clip/clip_settings.h"
#include "media/padded_frame.h"
#include "session/session_file.h"
#include "stabilize/clip_engine.h"
#include "stabilize/path_observer.h"
#include "zpr_framehold.h"
#include "zpr_smoothing_policy.h"

#include <deque>
#include <optional>
#include <vector>

namespace framehold {

/// The library as a phone runs it: feeds it motion in step with frames, and gets the frames out that
/// it delays.
class LiveEngine final : public ClipEngine {
public:
    /// Beside the results.
    struct Extras {
        bool keepsOriginals = false;       // gives results their original's pixels
        SessionWriter* session = nullptr;  // takes the calls of the library; borrowed, may be null
    };

    /// samples: in order of time; borrowed.
    LiveEngine(const ClipSettings& settings, const std::vector<ZPR_SensorData>& samples,
               const Extras& extras, Sink sink);
    ~LiveEngine() override { ZPR_Deinit(&handle_); }
    LiveEngine(const LiveEngine&) = delete;
    LiveEngine& operator=(const LiveEngine&) = delete;

    void push(const AVFrame& frame, double time) override;
    void finish(double framePeriod) override;

private:
    /// A frame that the library has been given and not yet given back.
    struct WaitingFrame {
        AvPtr<AVFrame> original;
        double time;
    };

    void start(const AVFrame& frame, double time);
    void feedUpTo(double time);
    void chooseLevel(double time);
    AvPtr<AVFrame> keep(const AVFrame& frame) const;
    void render(const AVFrame& frame, double time);

    ZPR_Param param_;
    const std::vector<ZPR_SensorData>& samples_;
    Extras extras_;
    Sink sink_;
    PathObserver observer_;
    std::optional<ZPR_SmoothingPolicy> policy_;  // if the level is chosen for every frame
    std::optional<PaddedFrame> padded_;          // from the first frame on
    ZPR_Handle handle_ = nullptr;                // likewise
    double shift_ = 0.0;                         // seconds from the samples' clock to the library's
    size_t nextSample_ = 0;
    std::deque<WaitingFrame> waiting_;
    const AVFrame* last_ = nullptr;  // as it was given to the library
    double lastTime_ = 0.0;
};

}  // namespace framehold
