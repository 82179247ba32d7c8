#pragma once

#include "gstreamer/clip_motion.h"
#include "gstreamer/element_settings.h"
#include "gstreamer/frame_times.h"
#include "gstreamer/gst_handles.h"
#include "gstreamer/input_frames.h"
#include "gstreamer/motion_queue.h"
#include "gstreamer/output_frames.h"
#include "gstreamer/stabilizer_session.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>

namespace framehold {

/// Counts of what has happened since the element was started.
struct FilterStatistics {
    std::atomic<uint64_t> framesIn{0};
    std::atomic<uint64_t> framesOut{0};
    std::atomic<uint64_t> framesDropped{0};        // too late to be shown
    std::atomic<uint64_t> framesWithoutMotion{0};  // their samples had not come in time
    std::atomic<uint64_t> samplesTaken{0};
    std::atomic<uint64_t> samplesDropped{0};  // late, of a type that is not enabled, or not finite
    std::atomic<uint64_t> restarts{0};        // of the stabilization after its first start
    std::atomic<uint64_t> inputCopies{0};
    std::atomic<uint64_t> outputCopies{0};
    std::atomic<uint64_t> renderNanoseconds{0};
    std::atomic<uint64_t> waitNanoseconds{0};
    std::atomic<int> smoothingLevel{0};

    /// Sets all to 0.
    void restart();
};

/// Video part of the element: takes what comes to its sink pad and pushes stabilized frames. All but
/// what says otherwise runs in the thread that streams.
class FrameFilter {
public:
    FrameFilter(GstElement* element, GstPad* sink, GstPad* src)
        : element_(element), sink_(sink), src_(src) {}

    // Any thread.
    ElementSettings settings() const;
    template <class Change>
    void changeSettings(const Change& change) {
        const std::lock_guard<std::mutex> lock(settingsMutex_);
        change(settings_);
    }
    MotionQueue& motion() { return motion_; }
    FilterStatistics& statistics() { return statistics_; }
    /// Adds a live sample in logged axes, on the frames' clock; false if it is dropped.
    bool pushSample(ZPR_SensorData sample);
    /// Takes a report of the sink's on how late it is.
    void noteQos(GstEvent* event);
    /// Delay that the element adds, in nanoseconds; 0 before the first frame's size is known.
    GstClockTime latency() const { return latency_; }
    /// Wakes what waits, and keeps it awake.
    void setFlushing(bool isFlushing) { motion_.setFlushing(isFlushing); }

    // State changes.
    /// Reads the files that are named. Throws std::runtime_error.
    void start();
    void stop();

    // Streaming. Errors are posted as messages.
    GstFlowReturn chain(GstHandle<GstBuffer> buffer);
    void setSegment(const GstSegment& segment) { times_.setSegment(segment); }
    /// Agrees on the output's size and its buffers; delayed frames are pushed first.
    bool setCaps(GstCaps* caps);
    /// Pushes the frames that are delayed, and starts over with the next one.
    GstFlowReturn drain();
    /// Forgets the frames that are delayed. resetsTime: running time begins anew.
    void flush(bool resetsTime);

private:
    /// What is known of a frame that the library has not given back yet.
    struct WaitingFrame {
        GstHandle<GstBuffer> properties;  // without memory
        GstClockTime runningTime;
    };

    bool negotiate();
    bool negotiateOnce();
    void findClip();
    void setVideo();
    void startSession(double time);
    double frameTime(GstClockTime timestamp);
    void feed(double until);
    GstFlowReturn render(double time);
    GstFlowReturn push(GstHandle<GstBuffer> buffer, const WaitingFrame& frame);
    bool isLate(const WaitingFrame& frame) const;
    void skip(double time, const WaitingFrame& frame);
    void updateLatency();
    void warnOfRate();
    void warn(const std::string& text);
    GstFlowReturn fail(const std::string& text);

    GstElement* element_;
    GstPad* sink_;
    GstPad* src_;
    mutable std::mutex settingsMutex_;
    ElementSettings settings_;
    MotionQueue motion_;
    FilterStatistics statistics_;
    std::atomic<GstClockTime> latency_{0};
    std::atomic<GstClockTime> earliest_{0};  // running time before which frames are too late

    mutable std::mutex axesMutex_;
    std::optional<AxisMapping> liveAxes_;

    ClipInputs clip_;  // its video: that of the stream
    bool isClipRead_ = false;
    bool hasLog_ = false;
    int logMask_ = 0;  // types of the log's samples
    FrameTimes times_;
    GstHandle<GstCaps> inputCaps_;
    GstVideoInfo inputInfo_{};
    StreamProperties stream_;
    OutputFrames output_;
    bool isNegotiated_ = false;
    bool isRefused_ = false;  // downstream takes no such frames, whatever their size

    ElementSettings wanted_;  // of the session and its input
    std::optional<StabilizerSession> session_;
    std::optional<InputFrames> input_;
    std::deque<WaitingFrame> waiting_;
    double lastTime_ = 0.0;  // of the frame taken last
    bool hasWarnedOfRate_ = false;
    bool hasStarted_ = false;
};

}  // namespace framehold
