#include "gstreamer/motion_pad.h"

#include "gstreamer/motion_record.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace framehold {

namespace {

/// Bytes of a buffer, mapped for as long as this is there.
class MappedBytes {
public:
    explicit MappedBytes(GstBuffer* buffer)
        : buffer_(buffer), isMapped_(gst_buffer_map(buffer, &map_, GST_MAP_READ)) {}
    ~MappedBytes() {
        if (isMapped_) gst_buffer_unmap(buffer_, &map_);
    }
    MappedBytes(const MappedBytes&) = delete;
    MappedBytes& operator=(const MappedBytes&) = delete;

    explicit operator bool() const { return isMapped_; }
    const uint8_t* data() const { return map_.data; }
    size_t size() const { return map_.size; }

private:
    GstBuffer* buffer_;
    GstMapInfo map_{};
    bool isMapped_;
};

}  // namespace

GstFlowReturn MotionPad::chain(GstBuffer* buffer, std::string& error) {
    const MappedBytes bytes(buffer);
    if (!bytes) {
        error = "motion: a buffer cannot be read";
        return GST_FLOW_ERROR;
    }
    if (bytes.size() % kMotionRecordSize != 0) {
        error = fmt::format("motion: a buffer has {} bytes, which are no whole records of {}",
                            bytes.size(), kMotionRecordSize);
        return GST_FLOW_ERROR;
    }
    for (size_t at = 0; at < bytes.size(); at += kMotionRecordSize) {
        ZPR_SensorData sample = readMotionRecord(bytes.data() + at);
        if (at == 0) followClock(sample.timestamp, GST_BUFFER_PTS(buffer));
        sample.timestamp += shift_.value_or(0.0);
        if (!filter_.motion().waitForRoom()) return GST_FLOW_FLUSHING;
        filter_.pushSample(sample);
    }
    return GST_FLOW_OK;
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
