#include "gstreamer/frame_filter.h"

#include "common/library_constants.h"
#include "motion/sensor_samples.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>

namespace framehold {

namespace {

/// Copies everything but the pixels, and what belongs to these.
void copyProperties(GstBuffer* from, GstBuffer* to) {
    constexpr auto kWhat =
        static_cast<GstBufferCopyFlags>(GST_BUFFER_COPY_FLAGS | GST_BUFFER_COPY_TIMESTAMPS);
    gst_buffer_copy_into(to, from, kWhat, 0, static_cast<gsize>(-1));
    gpointer state = nullptr;
    while (GstMeta* meta = gst_buffer_iterate_meta(from, &state)) {
        const gchar* const* tags = gst_meta_api_type_get_tags(meta->info->api);
        if ((tags != nullptr && tags[0] != nullptr) || meta->info->transform_func == nullptr)
            continue;
        GstMetaTransformCopy whole{FALSE, 0, static_cast<gsize>(-1)};
        meta->info->transform_func(to, meta, from, _gst_meta_transform_copy, &whole);
    }
}

/// Nanoseconds from now on, for as long as this is there.
class Stopwatch {
public:
    explicit Stopwatch(std::atomic<uint64_t>& sum) : sum_(sum) {}
    ~Stopwatch() {
        const auto passed = std::chrono::steady_clock::now() - start_;
        sum_ += static_cast<uint64_t>(std::chrono::nanoseconds(passed).count());
    }
    Stopwatch(const Stopwatch&) = delete;
    Stopwatch& operator=(const Stopwatch&) = delete;

private:
    std::atomic<uint64_t>& sum_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// A wait that a clock can add.
std::chrono::nanoseconds boundedWait(uint64_t nanoseconds) {
    constexpr uint64_t kDay = 86'400 * GST_SECOND;
    return std::chrono::nanoseconds(std::min(nanoseconds, kDay));
}

}  // namespace

void FilterStatistics::restart() {
    for (std::atomic<uint64_t>* count :
         {&framesIn, &framesOut, &framesDropped, &framesWithoutMotion, &samplesTaken,
          &samplesDropped, &restarts, &inputCopies, &outputCopies, &renderNanoseconds,
          &waitNanoseconds}) {
        *count = 0;
    }
    smoothingLevel = 0;
}

ElementSettings FrameFilter::settings() const {
    const std::lock_guard<std::mutex> lock(settingsMutex_);
    return settings_;
}

void FrameFilter::warn(const std::string& text) {
    GST_ELEMENT_WARNING(element_, LIBRARY, SETTINGS, ("%s", text.c_str()), (nullptr));
}

GstFlowReturn FrameFilter::fail(const std::string& text) {
    GST_ELEMENT_ERROR(element_, LIBRARY, SETTINGS, ("%s", text.c_str()), (nullptr));
    return GST_FLOW_ERROR;
}

bool FrameFilter::pushSample(ZPR_SensorData sample) {
    {
        const std::lock_guard<std::mutex> lock(axesMutex_);
        if (!liveAxes_) liveAxes_ = axesOf(settings(), ClipInputs());
        if (sample.type >= 1 && sample.type <= 6) toDeviceAxes(*liveAxes_, sample);
    }
    const bool isTaken = motion_.push(sample);
    if (!isTaken) ++statistics_.samplesDropped;
    return isTaken;
}

void FrameFilter::noteQos(GstEvent* event) {
    GstQOSType type;
    gdouble proportion;
    GstClockTimeDiff difference;
    GstClockTime timestamp;
    gst_event_parse_qos(event, &type, &proportion, &difference, &timestamp);
    if (!GST_CLOCK_TIME_IS_VALID(timestamp)) return;
    // Frames that are due by then would be late as well.
    const auto due =
        static_cast<GstClockTimeDiff>(timestamp) + (difference > 0 ? 2 : 1) * difference;
    earliest_ = due > 0 ? static_cast<GstClockTime>(due) : 0;
}

void FrameFilter::start() {
    const ElementSettings wanted = settings();
    statistics_.restart();
    isClipRead_ = !wanted.motionFromVideo || !wanted.motionFile.empty();
    if (isClipRead_) clip_ = loadClip(wanted, "");
    const std::lock_guard<std::mutex> lock(axesMutex_);
    liveAxes_ = axesOf(wanted, clip_);
}

void FrameFilter::stop() {
    flush(false);
    output_.stop();
    motion_.clear();
    motion_.setEnded(false);
    clip_ = ClipInputs();
    isClipRead_ = false;
    hasLog_ = hasStarted_ = hasWarnedOfRate_ = isNegotiated_ = false;
    inputCaps_.reset();
    times_ = FrameTimes();
    earliest_ = 0;
    latency_ = 0;
    const std::lock_guard<std::mutex> lock(axesMutex_);
    liveAxes_.reset();
}

void FrameFilter::flush(bool resetsTime) {
    session_.reset();
    input_.reset();
    waiting_.clear();
    times_.restart();
    earliest_ = 0;
    const FrameClock clock = settings().frameClock;
    const bool isRunningTime = clock == FrameClock::kRunningTime || clock == FrameClock::kAuto;
    const bool hasPad = element_->numsinkpads > 1;  // whose own flush does it
    if (resetsTime && isRunningTime && !hasPad) motion_.clearLive();
}

/// The files that are known only once the stream has begun.
void FrameFilter::findClip() {
    if (isClipRead_) return;
    const GstHandle<GstQuery> query(gst_query_new_uri());
    std::string video;
    if (gst_pad_peer_query(sink_, query.get())) {
        gchar* uri = nullptr;
        gst_query_parse_uri(query.get(), &uri);
        gchar* path = uri == nullptr ? nullptr : g_filename_from_uri(uri, nullptr, nullptr);
        if (path != nullptr) video = path;
        g_free(path);
        g_free(uri);
    }
    if (video.empty()) {
        throw std::runtime_error("motion-from-video: the stream does not come from a local file");
    }
    clip_ = loadClip(settings(), video);
    isClipRead_ = true;
    setVideo();
}

/// Frames may have another size and rate than those in the file.
void FrameFilter::setVideo() {
    clip_.video.width = stream_.width;
    clip_.video.height = stream_.height;
    clip_.video.framesPerSecond = stream_.framesPerSecond;
}

/// Seconds of a frame on the clock of the samples, without the time offset.
double FrameFilter::frameTime(GstClockTime timestamp) {
    const bool isLog = clip_.log.has_value();
    const ClipMetadata& metadata = clip_.metadata;
    if (isLog && !metadata.frameTimes.empty()) {
        return times_.take(timestamp, metadata.frameTimes, metadata.framesFile);
    }
    FrameClock clock = settings().frameClock;
    if (clock == FrameClock::kAuto) {
        clock = isLog ? FrameClock::kStreamTime : FrameClock::kRunningTime;
    }
    return times_.take(timestamp, clock, gst_element_get_base_time(element_));
}

GstFlowReturn FrameFilter::chain(GstHandle<GstBuffer> buffer) try {
    if (!inputCaps_) return GST_FLOW_NOT_NEGOTIATED;
    // A flush may have cut short what came before.
    if ((gst_pad_check_reconfigure(src_) || !isNegotiated_) && !negotiate()) {
        gst_pad_mark_reconfigure(src_);
        return GST_PAD_IS_FLUSHING(src_) ? GST_FLOW_FLUSHING : GST_FLOW_NOT_NEGOTIATED;
    }
    const GstClockTime timestamp = times_.timestampOf(buffer.get());
    if (times_.isApart(timestamp)) {
        const GstFlowReturn flow = drain();
        if (flow != GST_FLOW_OK) return flow;
    }
    ++statistics_.framesIn;
    findClip();
    const double time = frameTime(timestamp);
    WaitingFrame waiting{GstHandle<GstBuffer>(gst_buffer_new()), GST_CLOCK_TIME_NONE};
    copyProperties(buffer.get(), waiting.properties.get());
    GST_BUFFER_PTS(waiting.properties.get()) = timestamp;
    waiting.runningTime =
        gst_segment_to_running_time(&times_.segment(), GST_FORMAT_TIME, timestamp);
    if (!session_) {
        wanted_ = settings();
        input_.emplace(inputInfo_, stream_.paddedWidth(), wanted_.delay > 0);
    }
    if (input_->take(std::move(buffer))) ++statistics_.inputCopies;
    if (!session_) startSession(time);
    const ZPR_Param& param = session_->param();
    const double need = time + param.timeOffset + param.readoutTime;
    MotionQueue::Wait wait = MotionQueue::Wait::kReady;
    {
        const Stopwatch watch(statistics_.waitNanoseconds);
        wait = motion_.waitFor(need, false, boundedWait(settings().maxWait));
    }
    if (wait == MotionQueue::Wait::kFlushing) return GST_FLOW_FLUSHING;
    if (wait == MotionQueue::Wait::kTimedOut) ++statistics_.framesWithoutMotion;
    warnOfRate();
    waiting_.push_back(std::move(waiting));
    lastTime_ = time;
    return render(time);
} catch (const std::exception& error) {
    return fail(error.what());
}

void FrameFilter::startSession(double time) {
    if (hasStarted_) ++statistics_.restarts;
    ZPR_Param param = libraryParam(wanted_, clip_, stream_);
    param.inputImage.pitch[0] = param.inputImage.pitch[1] = input_->latest().pitch[0];
    if (clip_.log && !hasLog_) {
        motion_.setLog(logSamples(wanted_, clip_, stream_.framesPerSecond, param));
        logMask_ = param.sensorMask;
    }
    hasLog_ = clip_.log.has_value();
    if (hasLog_) param.sensorMask = logMask_;
    motion_.rewind();
    const double need = time + param.timeOffset + param.readoutTime;
    motion_.waitFor(need, true, boundedWait(wanted_.maxWait));
    if (param.sensorMask == 0) {
        constexpr int kOrientations =
            ZPR_SENSOR_BIT(ZPR_SENSOR_ROTATION_1) | ZPR_SENSOR_BIT(ZPR_SENSOR_ROTATION_2);
        constexpr int kAll = 63;
        param.sensorMask =
            motion_.holds(SampleKind::kOrientation) ? kOrientations : kAll & ~kOrientations;
    }
    double start = time + param.timeOffset;
    if (const auto first = motion_.firstTime()) start = std::min(start, *first);
    session_.emplace(param, start);
    if (!hasLog_ && motion_.holds(SampleKind::kRate) && !motion_.hasGravity()) {
        // Rates count from the first gravity on.
        ZPR_SensorData gravity{ZPR_SENSOR_GRAVITY_1, start, {}};
        std::copy(kPictureTop.begin(), kPictureTop.end(), gravity.value);
        if (const auto latest = motion_.latestGravity()) {
            std::copy_n(latest->value, 3, gravity.value);
            gravity.type = latest->type;
        }
        session_->addSample(gravity);
    }
    if (!hasStarted_) {
        for (const std::string& text : parameterWarnings(wanted_, clip_, stream_)) warn(text);
    }
    hasStarted_ = true;
    updateLatency();
}

void FrameFilter::feed(double until) {
    motion_.takeUpTo(until, [this](const ZPR_SensorData& sample) {
        ++(session_->addSample(sample) ? statistics_.samplesTaken : statistics_.samplesDropped);
    });
}

/// Gives the library the latest frame, at a time, and pushes what comes out.
GstFlowReturn FrameFilter::render(double time) {
    const ZPR_Param& param = session_->param();
    feed(time + param.timeOffset + param.readoutTime);
    session_->setSmoothing(settings().smoothing);
    if (!session_->isFull()) {
        ZPR_Image unused = output_.description();
        session_->stabilize(time, input_->latest(), unused);
        return GST_FLOW_OK;
    }
    const WaitingFrame frame = std::move(waiting_.front());
    waiting_.pop_front();
    if (isLate(frame)) {
        skip(time, frame);
        return GST_FLOW_OK;
    }
    GstHandle<GstBuffer> buffer;
    const GstFlowReturn flow = output_.make(buffer, [&](ZPR_Image& image) {
        const Stopwatch watch(statistics_.renderNanoseconds);
        session_->stabilize(time, input_->latest(), image);
    });
    if (flow != GST_FLOW_OK) return flow;
    if (output_.isCopied()) ++statistics_.outputCopies;
    statistics_.smoothingLevel = session_->smoothingLevel();
    return push(std::move(buffer), frame);
}

GstFlowReturn FrameFilter::push(GstHandle<GstBuffer> buffer, const WaitingFrame& frame) {
    copyProperties(frame.properties.get(), buffer.get());
    const GstFlowReturn flow = gst_pad_push(src_, buffer.release());
    if (flow == GST_FLOW_NOT_NEGOTIATED && gst_pad_needs_reconfigure(src_)) {
        // Downstream wants other frames from now on; the next one will be such.
        ++statistics_.framesDropped;
        return GST_FLOW_OK;
    }
    if (flow == GST_FLOW_OK) ++statistics_.framesOut;
    return flow;
}

bool FrameFilter::isLate(const WaitingFrame& frame) const {
    return settings().qos && GST_CLOCK_TIME_IS_VALID(frame.runningTime) &&
           frame.runningTime < earliest_;
}

/// Lets the library go on without drawing a frame that nobody will see.
void FrameFilter::skip(double time, const WaitingFrame& frame) {
    ZPR_Image nothing = output_.description();
    nothing.width = nothing.height = 0;
    uint8_t unwritten[2] = {};
    for (int i = 0; i < 2; ++i) nothing.plane[i] = &unwritten[i];
    session_->stabilize(time, input_->latest(), nothing);
    ++statistics_.framesDropped;
    GstBuffer* properties = frame.properties.get();
    const GstClockTime timestamp = GST_BUFFER_PTS(properties);
    GstMessage* message = gst_message_new_qos(
        GST_OBJECT(element_), FALSE, frame.runningTime,
        gst_segment_to_stream_time(&times_.segment(), GST_FORMAT_TIME, timestamp), timestamp,
        GST_BUFFER_DURATION(properties));
    gst_message_set_qos_stats(message, GST_FORMAT_BUFFERS, statistics_.framesOut,
                              statistics_.framesDropped);
    gst_element_post_message(element_, message);
}

/// The last frame is repeated: the library's own way to drain looks ahead from where draining began,
/// not from the frame that it renders, and the picture jumps.
GstFlowReturn FrameFilter::drain() try {
    GstFlowReturn flow = GST_FLOW_OK;
    if (session_ && isNegotiated_) {
        const double period = 1.0 / stream_.framesPerSecond;
        for (int i = 1; !waiting_.empty() && flow == GST_FLOW_OK; ++i) {
            flow = render(lastTime_ + i * period);
        }
    }
    flush(false);
    return flow;
} catch (const std::exception& error) {
    flush(false);
    return fail(error.what());
}

void FrameFilter::warnOfRate() {
    if (hasLog_ || hasWarnedOfRate_) return;
    const ZPR_Param& param = session_->param();
    const double largest =
        largestSampleRate(param.delayFrames, stream_.framesPerSecond, param.readoutTime);
    const double rate = motion_.samplesPerSecond();
    if (rate <= largest) return;
    hasWarnedOfRate_ = true;
    warn(
        fmt::format("delay: {:.0f} samples per second outrun what is kept for {} frames, at most "
                    "{:.0f} per second; average samples, or set another delay",
                    rate, param.delayFrames, largest));
}

}  // namespace framehold
