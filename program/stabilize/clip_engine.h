#pragma once

#include "media/libav.h"
#include "stabilize/path_observer.h"

#include <functional>

namespace framehold {

/// A frame of a clip, stabilized.
struct StabilizedFrame {
    AvPtr<AVFrame> picture;     // with the original's pts and duration
    AvPtr<AVFrame> original;    // without pixels unless the engine keeps them
    double time = 0.0;          // seconds, of the first row, on the frames' clock
    double milliseconds = 0.0;  // that it took
    int level = 0;              // of smoothing; 0 if the engine has none
    ObservedPath path;          // empty unless the engine observes it
};

/// Stabilizes the frames of one clip. Throws std::runtime_error.
class ClipEngine {
public:
    /// Gets the results in the order of the frames.
    using Sink = std::function<void(const StabilizedFrame&)>;

    virtual ~ClipEngine() = default;

    /// Takes the next frame, which must stay valid until the next call.
    /// time: of the frame, in seconds on the frames' clock.
    virtual void push(const AVFrame& frame, double time) = 0;

    /// Gets frames out that are still kept, after the last one. framePeriod: seconds.
    virtual void finish(double framePeriod) = 0;
};

}  // namespace framehold
