// A simulated phone gives the element frames and samples in real time, these with jitter and delay.
// Prints frames lost, latency and use of the processor; or, with --soak, seeks and renegotiates at
// random and prints memory. Ends with 1 if frames were lost or came later than the element said.
#include "gstreamer/framehold_element.h"
#include "gstreamer/motion_record.h"
#include "live_source.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>

#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FRAMEHOLD_HAS_ADDRESS_CHECKS
#include <sanitizer/allocator_interface.h>
#endif
#endif

using namespace zpr_test;

namespace {

struct Settings {
    double seconds = 10.0;
    double pace = 1.0;
    int width = 320;
    int height = 240;
    int delay = 10;
    double slack = 0.02;   // seconds that frames may be late
    double rest = 1.5;     // seconds from one disturbance to the next, at most
    double report = 60.0;  // seconds from one line about memory to the next
    bool isSoak = false;
};

constexpr double kFrameDelay = 0.010;    // seconds from a frame's readout to its arrival
constexpr double kSensorDelay = 0.005;   // seconds from a sample to its arrival, at least
constexpr double kSensorJitter = 0.015;  // seconds more, at most
constexpr double kClockShift = 1000.0;   // seconds from running time to the sensors' clock
constexpr int kBatch = 4;                // samples of a rate in a buffer
constexpr int kSkipped = 77;             // exit code: GStreamer's own elements are missing

double cpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Memory of the process. With address checks, which keep records and freed memory of their own, also
/// what is allocated at the moment.
std::string memoryText() {
    size_t pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    std::string text =
        fmt::format("{:.1f} MB", static_cast<double>(resident) *
                                     static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6);
#ifdef FRAMEHOLD_HAS_ADDRESS_CHECKS
    text += fmt::format(", {:.1f} MB allocated",
                        static_cast<double>(__sanitizer_get_current_allocated_bytes()) / 1e6);
#endif
    return text;
}

class LiveRun {
public:
    explicit LiveRun(const Settings& settings)
        : settings_(settings), phone_(settings.width, settings.height), random_(1) {}
    ~LiveRun() {
        if (pipeline_ == nullptr) return;
        gst_element_set_state(pipeline_, GST_STATE_NULL);
        for (GstElement* element : {video_, motion_, filter_, size_, sink_})
            gst_object_unref(element);
        gst_object_unref(pipeline_);
    }

    int run() {
        if (!build()) return kSkipped;
        LiveSource frames(video_, Phone::kFrameRate, settings_.pace,
                          [this](int64_t n) { return frame(n); });
        LiveSource samples(motion_, Phone::kSampleRate / kBatch, settings_.pace,
                           [this](int64_t n) { return records(n); });
        gst_element_set_state(pipeline_, GST_STATE_PLAYING);
        // Both clocks are the system's monotonic one.
        const LiveClock::time_point start(
            std::chrono::nanoseconds(gst_element_get_base_time(pipeline_)));
        frames.start(settings_.isSoak ? LiveClock::now() : start);
        samples.start(settings_.isSoak ? LiveClock::now() : start);
        const double cpu = cpuSeconds();
        const bool isGood = watch();
        const double share = (cpuSeconds() - cpu) / settings_.seconds;
        const GstClockTime stated = statedLatency();
        frames.stop();
        samples.stop();
        GstFlowReturn flow = GST_FLOW_OK;
        if (!settings_.isSoak) {
            // The last frames need not wait for samples that do not come.
            g_signal_emit_by_name(motion_, "end-of-stream", &flow);
            g_signal_emit_by_name(video_, "end-of-stream", &flow);
        }
        const bool hasEnded = settings_.isSoak || !pop(20 * GST_SECOND, GST_MESSAGE_EOS).empty();
        printStats();
        gst_element_set_state(pipeline_, GST_STATE_NULL);
        if (settings_.isSoak) {
            std::printf("%ld seeks, %ld new sizes, %ld frames in, %ld out\n", seeks_, sizes_,
                        static_cast<long>(frames.pushed()), static_cast<long>(shown_));
            return isGood ? 0 : 1;
        }
        const long lost = static_cast<long>(frames.pushed() - shown_);
        std::printf("frames: %ld in, %ld out, %ld lost\n", static_cast<long>(frames.pushed()),
                    static_cast<long>(shown_), lost);
        std::printf("latency: %.1f ms stated, %.1f ms measured on average, %.1f ms at most\n",
                    1e-6 * static_cast<double>(stated),
                    1e-6 * latencySum_ / static_cast<double>(std::max<int64_t>(1, left_)),
                    1e-6 * latencyMost_);
        std::printf("processor: %.1f %% of one\n", 100.0 * share);
        return isGood && hasEnded && lost == 0 && latencyMost_ <= static_cast<double>(stated) ? 0
                                                                                              : 1;
    }

private:
    bool build() {
        GError* error = nullptr;
        pipeline_ = gst_parse_launch(
            "appsrc name=video is-live=true format=time stream-type=seekable max-buffers=8 "
            "leaky-type=downstream "
            "! framehold name=filter ! capsfilter name=size ! queue ! fakesink name=sink sync=true "
            "qos=true "
            "signal-handoffs=true "
            "appsrc name=motion is-live=true format=time stream-type=seekable "
            "caps=application/x-framehold-motion ! filter.motion",
            &error);
        if (error != nullptr) {
            std::fprintf(stderr, "%s\n", error->message);
            g_error_free(error);
            return false;
        }
        const auto named = [this](const char* name) {
            return gst_bin_get_by_name(GST_BIN(pipeline_), name);
        };
        video_ = named("video");
        motion_ = named("motion");
        filter_ = named("filter");
        size_ = named("size");
        sink_ = named("sink");
        const auto latency =
            static_cast<gint64>((phone_.camera().readout + kFrameDelay) * GST_SECOND);
        g_object_set(video_, "min-latency", latency, "max-latency", latency, nullptr);
        // What samples are later than frames of the same time, whose readout is stated anyway.
        const auto sensors = static_cast<guint64>(
            (kSensorDelay + kSensorJitter + kBatch / Phone::kSampleRate) * GST_SECOND);
        g_object_set(filter_, "delay", settings_.delay, "focal-length", phone_.camera().focal,
                     "readout-time", phone_.camera().readout, "sensor-delay", sensors, "max-wait",
                     sensors + GST_SECOND / 4, nullptr);
        if (settings_.isSoak)
            gst_util_set_object_arg(G_OBJECT(filter_), "frame-clock", "stream-time");
        g_object_set(sink_, "max-lateness", static_cast<gint64>(settings_.slack * GST_SECOND),
                     nullptr);
        setSize(settings_.width, settings_.height);
        g_signal_connect(sink_, "handoff", G_CALLBACK(handoff), this);
        GstPad* pad = gst_element_get_static_pad(filter_, "src");
        gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, measureLatency, this, nullptr);
        gst_object_unref(pad);
        return true;
    }

    void setSize(int width, int height) {
        width_ = width;
        height_ = height;
    }

    LiveSource::Due frame(int64_t number) {
        const int width = width_, height = height_;
        if (width != pushedWidth_) {
            pushedWidth_ = width;
            GstCaps* caps = gst_caps_new_simple(
                "video/x-raw", "format", G_TYPE_STRING, "NV12", "width", G_TYPE_INT, width,
                "height", G_TYPE_INT, height, "framerate", GST_TYPE_FRACTION, 30, 1, nullptr);
            g_object_set(video_, "caps", caps, nullptr);
            gst_caps_unref(caps);
        }
        GstBuffer* buffer = phone_.frame(number, width, height);
        const double time = static_cast<double>(number) / Phone::kFrameRate;
        GST_BUFFER_PTS(buffer) = static_cast<GstClockTime>(time * GST_SECOND);
        GST_BUFFER_DURATION(buffer) = GST_SECOND / 30;
        return {buffer, time + phone_.camera().readout + kFrameDelay};
    }

    LiveSource::Due records(int64_t number) {
        std::vector<ZPR_SensorData> samples;
        for (int i = 0; i < kBatch; ++i) phone_.samples(number * kBatch + i, samples);
        const double first = samples.front().timestamp, last = samples.back().timestamp;
        const gsize size = samples.size() * framehold::kMotionRecordSize;
        GstBuffer* buffer = gst_buffer_new_allocate(nullptr, size, nullptr);
        GstMapInfo map;
        gst_buffer_map(buffer, &map, GST_MAP_WRITE);
        for (size_t i = 0; i < samples.size(); ++i) {
            if (!settings_.isSoak) samples[i].timestamp += kClockShift;
            framehold::writeMotionRecord(samples[i], map.data + i * framehold::kMotionRecordSize);
        }
        gst_buffer_unmap(buffer, &map);
        GST_BUFFER_PTS(buffer) = static_cast<GstClockTime>(first * GST_SECOND);
        return {buffer, last + kSensorDelay + sensorRandom_.uniform(0.0, kSensorJitter)};
    }

    /// Waits for the end of the run; false after an error, or where no frames come any more.
    bool watch() {
        const LiveClock::time_point start = LiveClock::now();
        const auto passed = [&] {
            return std::chrono::duration<double>(LiveClock::now() - start).count();
        };
        double nextReport = 0.0, lastProgress = 0.0;
        int64_t seen = 0;
        while (passed() < settings_.seconds) {
            if (settings_.isSoak && passed() >= nextReport) {
                std::printf("%5.0f s: %ld frames, %ld seeks, %ld new sizes, %s\n", passed(),
                            static_cast<long>(shown_), seeks_, sizes_, memoryText().c_str());
                std::fflush(stdout);
                nextReport += settings_.report;
            }
            const std::string error =
                pop(settings_.isSoak ? disturb() : 50 * GST_MSECOND, GST_MESSAGE_ERROR);
            if (!error.empty()) {
                std::printf("error: %s\n", error.c_str());
                return false;
            }
            if (shown_ != seen) lastProgress = passed();
            seen = shown_;
            if (passed() > lastProgress + 20.0) {
                std::printf("no frames for 20 s\n");
                return false;
            }
        }
        if (settings_.isSoak) std::printf("%5.0f s: %s\n", passed(), memoryText().c_str());
        return true;
    }

    /// Seeks or changes a size; returns how long to wait then.
    GstClockTime disturb() {
        const int what = random_.integer(0, 5);
        if (what == 0) {
            constexpr int kSizes[][2] = {{320, 240}, {256, 192}, {200, 120}, {128, 96}};
            const auto& size = kSizes[random_.integer(0, 3)];
            setSize(std::min(size[0], settings_.width), std::min(size[1], settings_.height));
            ++sizes_;
        } else if (what == 1) {
            GstCaps* caps = random_.integer(0, 1) == 0
                                ? gst_caps_new_any()
                                : gst_caps_from_string("video/x-raw,width=[2,160],height=[2,120]");
            g_object_set(size_, "caps", caps, nullptr);
            gst_caps_unref(caps);
            ++sizes_;
        } else if (what < 5) {
            const auto place = static_cast<gint64>(random_.uniform(0.0, 600.0) * GST_SECOND);
            gst_element_seek(pipeline_, settings_.pace, GST_FORMAT_TIME, GST_SEEK_FLAG_FLUSH,
                             GST_SEEK_TYPE_SET, place, GST_SEEK_TYPE_NONE, -1);
            ++seeks_;
        }
        return static_cast<GstClockTime>(random_.uniform(0.02, settings_.rest) * GST_SECOND);
    }

    /// Text of the next message of a type; empty if none comes in time.
    std::string pop(GstClockTime longest, GstMessageType type) const {
        GstBus* bus = gst_element_get_bus(pipeline_);
        GstMessage* message = gst_bus_timed_pop_filtered(
            bus, longest, static_cast<GstMessageType>(type | GST_MESSAGE_ERROR));
        gst_object_unref(bus);
        if (message == nullptr) return "";
        std::string text = GST_MESSAGE_TYPE_NAME(message);
        if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
            GError* error = nullptr;
            gst_message_parse_error(message, &error, nullptr);
            text = error->message;
            g_error_free(error);
        }
        gst_message_unref(message);
        return text;
    }

    GstClockTime statedLatency() const {
        GstQuery* query = gst_query_new_latency();
        GstClockTime least = 0;
        if (gst_element_query(pipeline_, query))
            gst_query_parse_latency(query, nullptr, &least, nullptr);
        gst_query_unref(query);
        return least;
    }

    void printStats() const {
        GstStructure* stats = nullptr;
        g_object_get(filter_, "stats", &stats, nullptr);
        gchar* text = gst_structure_to_string(stats);
        std::printf("%s\n", text);
        g_free(text);
        gst_structure_free(stats);
    }

    static void handoff(GstElement*, GstBuffer*, GstPad*, gpointer data) {
        ++static_cast<LiveRun*>(data)->shown_;
    }

    static GstPadProbeReturn measureLatency(GstPad*, GstPadProbeInfo* info, gpointer data) {
        auto& self = *static_cast<LiveRun*>(data);
        GstClock* clock = gst_element_get_clock(self.filter_);
        if (clock == nullptr) return GST_PAD_PROBE_OK;
        const auto now = static_cast<double>(gst_clock_get_time(clock) -
                                             gst_element_get_base_time(self.filter_));
        gst_object_unref(clock);
        const double late =
            now - static_cast<double>(GST_BUFFER_PTS(GST_PAD_PROBE_INFO_BUFFER(info)));
        self.latencySum_ += late;
        ++self.left_;
        self.latencyMost_ = std::max(self.latencyMost_, late);
        return GST_PAD_PROBE_OK;
    }

    Settings settings_;
    Phone phone_;
    Random random_;
    Random sensorRandom_{2};
    GstElement* pipeline_ = nullptr;
    GstElement* video_ = nullptr;
    GstElement* motion_ = nullptr;
    GstElement* filter_ = nullptr;
    GstElement* size_ = nullptr;
    GstElement* sink_ = nullptr;
    std::atomic<int> width_{0};
    std::atomic<int> height_{0};
    int pushedWidth_ = 0;
    std::atomic<int64_t> shown_{0};
    double latencySum_ = 0.0;  // nanoseconds
    double latencyMost_ = 0.0;
    int64_t left_ = 0;
    long seeks_ = 0;
    long sizes_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    Settings settings;
    CLI::App app("Runs the GStreamer element live with a simulated phone");
    app.add_option("--seconds", settings.seconds);
    app.add_option("--pace", settings.pace, "seconds of the stream in a real one");
    app.add_option("--width", settings.width);
    app.add_option("--height", settings.height);
    app.add_option("--delay", settings.delay, "frames");
    app.add_option("--slack", settings.slack, "seconds that frames may be late");
    app.add_option("--rest", settings.rest, "seconds between disturbances, at most");
    app.add_option("--report", settings.report, "seconds between lines about memory");
    app.add_flag("--soak", settings.isSoak, "seek and renegotiate at random");
    CLI11_PARSE(app, argc, argv);
    gst_init(nullptr, nullptr);
    if (!gst_element_register(nullptr, "framehold", GST_RANK_NONE,
                              framehold::frameholdElementType())) {
        return 2;
    }
    return LiveRun(settings).run();
}
