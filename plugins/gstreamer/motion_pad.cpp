#include "gstreamer/motion_pad.h"

#include "gstreamer/motion_record.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace framehold {

GstFlowReturn MotionPad::chain(GstBuffer* buffer, std::string& error) {
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) {
        error = "motion: a buffer cannot be read";
        return GST_FLOW_ERROR;
    }
    const size_t records = map.size / kMotionRecordSize;
    if (map.size % kMotionRecordSize != 0) {
        error = fmt::format("motion: a buffer has {} bytes, which are no whole records of {}",
                            map.size, kMotionRecordSize);
        gst_buffer_unmap(buffer, &map);
        return GST_FLOW_ERROR;
    }
    GstFlowReturn flow = GST_FLOW_OK;
    for (size_t i = 0; i < records; ++i) {
        ZPR_SensorData sample = readMotionRecord(map.data + i * kMotionRecordSize);
        if (i == 0) followClock(sample.timestamp, GST_BUFFER_PTS(buffer));
        sample.timestamp += shift_.value_or(0.0);
        if (!filter_.motion().waitForRoom()) {
            flow = GST_FLOW_FLUSHING;
            break;
        }
        filter_.pushSample(sample);
    }
    gst_buffer_unmap(buffer, &map);
    return flow;
}

/// Follows the difference of the clocks: a jump at once, else slowly.
void MotionPad::followClock(double firstTime, GstClockTime timestamp) {
    constexpr double kFollowing = 10.0;  // seconds
    constexpr double kJump = 1.0;        // seconds
    if (filter_.settings().frameClock != FrameClock::kAuto) return;
    if (!GST_CLOCK_TIME_IS_VALID(timestamp) || segment_.format != GST_FORMAT_TIME) return;
    const GstClockTime running = gst_segment_to_running_time(&segment_, GST_FORMAT_TIME, timestamp);
    if (!GST_CLOCK_TIME_IS_VALID(running)) return;
    const double measured = static_cast<double>(running) / GST_SECOND - firstTime;
    if (!shift_ || std::abs(measured - *shift_) > kJump) {
        shift_ = measured;
    } else {
        const double share = std::clamp((firstTime - shiftTime_) / kFollowing, 0.0, 1.0);
        *shift_ += share * (measured - *shift_);
    }
    shiftTime_ = firstTime;
}

void MotionPad::setSegment(const GstSegment& segment) {
    segment_ = segment;
    shift_.reset();
}

void MotionPad::reset() {
    gst_segment_init(&segment_, GST_FORMAT_TIME);
    shift_.reset();
    filter_.motion().clearLive();
}

}  // namespace framehold
