#pragma once

#include "zpr_framehold.h"

#include <cstddef>
#include <functional>
#include <vector>

namespace framehold {

/// Hands out motion samples in step with the frames.
class MotionFeed {
public:
    using Sink = std::function<void(const ZPR_SensorData&)>;

    /// samples: in order of time; borrowed. shift: seconds from their clock to the sink's.
    MotionFeed(const std::vector<ZPR_SensorData>& samples, double shift, Sink sink)
        : samples_(samples), shift_(shift), sink_(std::move(sink)) {}

    /// Hands out all samples up to the first one not before `time`, on the samples' clock.
    void feedUpTo(double time) {
        while (next_ < samples_.size() && (next_ == 0 || samples_[next_ - 1].timestamp < time)) {
            ZPR_SensorData sample = samples_[next_++];
            sample.timestamp += shift_;
            sink_(sample);
        }
    }

private:
    const std::vector<ZPR_SensorData>& samples_;
    double shift_;
    Sink sink_;
    size_t next_ = 0;
};

}  // namespace framehold
