#include "gstreamer/frame_times.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

double secondsOf(GstClockTime time) { return static_cast<double>(time) / GST_SECOND; }

}  // namespace

GstClockTime FrameTimes::timestampOf(GstBuffer* buffer) const {
    if (GST_BUFFER_PTS_IS_VALID(buffer)) return GST_BUFFER_PTS(buffer);
    return GST_CLOCK_TIME_IS_VALID(following_) ? following_ : segment_.start;
}

void FrameTimes::note(GstClockTime timestamp) {
    last_ = timestamp;
    following_ = timestamp + static_cast<GstClockTime>(std::llround(GST_SECOND / rate_));
}

bool FrameTimes::isApart(GstClockTime timestamp) const {
    constexpr GstClockTime kLongest = GST_SECOND;
    if (!GST_CLOCK_TIME_IS_VALID(last_)) return false;
    return timestamp < last_ || timestamp > last_ + kLongest;
}

double FrameTimes::streamSeconds(GstClockTime timestamp) const {
    guint64 value = 0;
    const gint sign =
        gst_segment_to_stream_time_full(&segment_, GST_FORMAT_TIME, timestamp, &value);
    return sign * secondsOf(value);
}

double FrameTimes::take(GstClockTime timestamp, FrameClock clock, GstClockTime baseTime) {
    note(timestamp);
    if (clock == FrameClock::kStreamTime) return streamSeconds(timestamp);
    guint64 value = 0;
    const gint sign =
        gst_segment_to_running_time_full(&segment_, GST_FORMAT_TIME, timestamp, &value);
    const double running = sign * secondsOf(value);
    return clock == FrameClock::kRunningTime ? running : running + secondsOf(baseTime);
}

double FrameTimes::take(GstClockTime timestamp, const std::vector<double>& table,
                        const std::string& file) {
    if (GST_CLOCK_TIME_IS_VALID(last_)) {
        const double passed = (secondsOf(timestamp) - secondsOf(last_)) * rate_;
        number_ += passed < 1.5 ? 1 : static_cast<size_t>(std::lround(passed));
    } else {
        number_ = static_cast<size_t>(std::lround(std::max(0.0, streamSeconds(timestamp)) * rate_));
    }
    note(timestamp);
    if (number_ < table.size()) return table[number_];
    throw std::runtime_error(
        fmt::format("{}: has {} frames, the video has more", file, table.size()));
}

}  // namespace framehold
