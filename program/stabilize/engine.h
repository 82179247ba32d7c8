#pragma once

#include "clip/clip_settings.h"
#include "media/libav.h"
#include "stabilize/padded_frame.h"
#include "zpr_framehold.h"

#include <deque>
#include <functional>
#include <optional>
#include <vector>

namespace framehold {

/// A frame of a clip, stabilized.
struct StabilizedFrame {
    AvPtr<AVFrame> picture;     // with the original's pts and duration
    AvPtr<AVFrame> original;    // without pixels unless the engine keeps them
    double time = 0.0;          // seconds, of the first row, on the frames' clock
    double milliseconds = 0.0;  // that the library took
};

/// Stabilizes the frames of one clip: feeds the library motion in step with frames, and gets the
/// frames out that it delays.
class Engine {
public:
    /// Where results and all that the library is fed go to; each but `onStabilized` may be empty.
    struct Events {
        std::function<void(const StabilizedFrame&)> onStabilized;  // in the order of the frames
        std::function<void(const ZPR_SensorData&)> onSample;
        std::function<void(double timestamp, const ZPR_Image& image)> onFrame;
    };

    /// samples: in order of time; borrowed. keepsOriginals: gives results their original's pixels.
    Engine(const ClipSettings& settings, const std::vector<ZPR_SensorData>& samples,
           bool keepsOriginals, Events events);
    ~Engine() { ZPR_Deinit(&handle_); }
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    /// Takes the next frame, which must stay valid until the next call.
    /// time: of the frame, in seconds on the samples' clock but for the time offset.
    /// Throws std::runtime_error, as all functions.
    void push(const AVFrame& frame, double time);

    /// Gets the delayed frames out, after the last frame. framePeriod: seconds.
    void finish(double framePeriod);

private:
    /// A frame that the library has been given and not yet given back.
    struct WaitingFrame {
        AvPtr<AVFrame> original;
        double time;
    };

    void start(const AVFrame& frame, double time);
    void feedUpTo(double time);
    AvPtr<AVFrame> keep(const AVFrame& frame) const;
    void render(const AVFrame& frame, double time);

    ZPR_Param param_;
    const std::vector<ZPR_SensorData>& samples_;
    bool keepsOriginals_;
    Events events_;
    std::optional<PaddedFrame> padded_;  // from the first frame on
    ZPR_Handle handle_ = nullptr;        // likewise
    double shift_ = 0.0;                 // seconds from the samples' clock to the library's
    size_t nextSample_ = 0;
    std::deque<WaitingFrame> waiting_;
    const AVFrame* last_ = nullptr;  // as it was given to the library
    double lastTime_ = 0.0;
};

}  // namespace framehold
