#pragma once

#include "gstreamer/element_settings.h"

#include <cstddef>
#include <string>
#include <vector>

#include <gst/gst.h>

namespace framehold {

/// Times of a stream's frames on the clock of the samples.
class FrameTimes {
public:
    FrameTimes() { gst_segment_init(&segment_, GST_FORMAT_TIME); }

    void setSegment(const GstSegment& segment) {
        segment_ = segment;
        following_ = GST_CLOCK_TIME_NONE;
    }
    const GstSegment& segment() const { return segment_; }
    void setFrameRate(double framesPerSecond) { rate_ = framesPerSecond; }
    /// Forgets the frame taken last.
    void restart() { last_ = GST_CLOCK_TIME_NONE; }

    /// Timestamp of a buffer; one that has none comes a frame after the one before.
    GstClockTime timestampOf(GstBuffer* buffer) const;
    /// True for a frame that does not follow the one before.
    bool isApart(GstClockTime timestamp) const;

    /// Makes a frame the latest one and returns its time in seconds, without the time offset. clock:
    /// not kAuto. baseTime: of the element.
    double take(GstClockTime timestamp, FrameClock clock, GstClockTime baseTime);
    /// The same by a table of the times of all frames. They are counted; after a gap or a seek their
    /// number is that of a constant rate. file: of the table, for the message. Throws
    /// std::runtime_error for more frames than it has.
    double take(GstClockTime timestamp, const std::vector<double>& table, const std::string& file);

private:
    double streamSeconds(GstClockTime timestamp) const;
    void note(GstClockTime timestamp);

    GstSegment segment_;
    double rate_ = 30.0;
    GstClockTime last_ = GST_CLOCK_TIME_NONE;       // timestamp of the frame taken last
    GstClockTime following_ = GST_CLOCK_TIME_NONE;  // a frame later, in this segment
    size_t number_ = 0;                             // of the frame taken last, in the table
};

}  // namespace framehold
