#pragma once

#include "gstreamer/frame_filter.h"
#include "gstreamer/gst_handles.h"

#include <optional>
#include <string>

namespace framehold {

/// Motion part of the element: reads records from the buffers of the pad `motion`.
///
/// Where frames have running time and buffers have timestamps, the times of the records are brought
/// to running time: a buffer's timestamp is the time of its first record. The difference of the two
/// clocks is averaged over seconds.
class MotionPad {
public:
    explicit MotionPad(FrameFilter& filter) : filter_(filter) {
        gst_segment_init(&segment_, GST_FORMAT_TIME);
    }

    /// Takes a buffer; an error is text for the user.
    GstFlowReturn chain(GstBuffer* buffer, std::string& error);
    void setSegment(const GstSegment& segment);
    /// Starts over, as for a new stream.
    void reset();

private:
    void followClock(double firstTime, GstClockTime timestamp);

    FrameFilter& filter_;
    GstSegment segment_;
    std::optional<double> shift_;  // seconds from the records' clock to running time
    double shiftTime_ = 0.0;       // of the record that it was last seen at
};

}  // namespace framehold
