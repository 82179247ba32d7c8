#pragma once

#include "gstreamer/framehold_element.h"
#include "support/frame.h"
#include "support/hand_shake.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gst/check/gstharness.h>
#include <gst/video/video.h>

namespace zpr_test {

/// Layout of frames in their buffers; 0: as the width is.
struct Layout {
    int lumaStride = 0;
    int chromaStride = 0;
    int offset = 0;  // of the first row
};

struct BufferUnref {
    void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
};
using Buffer = std::unique_ptr<GstBuffer, BufferUnref>;

constexpr GstClockTime kPeriod = GST_SECOND / 30;

/// Frames of a made-up stream, each with random bytes of its own.
class Stream {
public:
    Stream(int width, int height, GstVideoFormat format = GST_VIDEO_FORMAT_NV12)
        : width_(width), height_(height), format_(format) {}

    /// Fills the pixels of a frame.
    void draw(int number, ZPR_Image& image) const {
        Random random(static_cast<uint32_t>(number) + 1);
        for (int plane = 0; plane < 2; ++plane) {
            for (int y = 0; y < height_ >> plane; ++y) {
                uint8_t* row = image.plane[plane] + ptrdiff_t{y} * image.pitch[plane];
                for (int x = 0; x < width_; ++x) row[x] = random.byte();
            }
        }
    }

    Buffer frame(int number, const Layout& layout = {}) const {
        const int strides[2] = {layout.lumaStride == 0 ? width_ : layout.lumaStride,
                                layout.chromaStride == 0 ? width_ : layout.chromaStride};
        const int luma = strides[0] * height_, chroma = strides[1] * height_ / 2;
        const int size = layout.offset + luma + chroma;
        Buffer buffer(gst_buffer_new_allocate(nullptr, static_cast<gsize>(size), nullptr));
        gst_buffer_memset(buffer.get(), 0, 0x55, static_cast<gsize>(size));
        GstMapInfo map;
        gst_buffer_map(buffer.get(), &map, GST_MAP_WRITE);
        uint8_t* first = map.data + layout.offset;
        ZPR_Image image{0, width_, height_, {first, first + luma}, {strides[0], strides[1]}};
        draw(number, image);
        gst_buffer_unmap(buffer.get(), &map);
        gsize offsets[GST_VIDEO_MAX_PLANES] = {static_cast<gsize>(layout.offset),
                                               static_cast<gsize>(layout.offset + luma)};
        gint pitches[GST_VIDEO_MAX_PLANES] = {strides[0], strides[1]};
        gst_buffer_add_video_meta_full(buffer.get(), GST_VIDEO_FRAME_FLAG_NONE, format_,
                                       static_cast<guint>(width_), static_cast<guint>(height_), 2,
                                       offsets, pitches);
        GST_BUFFER_PTS(buffer.get()) = static_cast<GstClockTime>(number) * kPeriod;
        GST_BUFFER_DURATION(buffer.get()) = kPeriod;
        return buffer;
    }

    std::string caps() const {
        return std::string("video/x-raw,format=") + gst_video_format_to_string(format_) +
               ",width=" + std::to_string(width_) + ",height=" + std::to_string(height_) +
               ",framerate=30/1";
    }

    /// Checksum of the pixels of a frame of this size, by its own layout.
    uint64_t sumOf(GstBuffer* buffer) const {
        GstVideoInfo info;
        gst_video_info_set_format(&info, format_, static_cast<guint>(width_),
                                  static_cast<guint>(height_));
        GstVideoFrame frame;
        if (!gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ)) return 0;
        ZPR_Image image{0, width_, height_, {}, {}};
        for (int i = 0; i < 2; ++i) {
            image.plane[i] = static_cast<uint8_t*>(frame.data[i]);
            image.pitch[i] = frame.info.stride[i];
        }
        const uint64_t sum = checksum(image);
        gst_video_frame_unmap(&frame);
        return sum;
    }

    int width() const { return width_; }
    int height() const { return height_; }

private:
    int width_;
    int height_;
    GstVideoFormat format_;
};

/// Samples of a moving hand from 0 s on.
inline std::vector<ZPR_SensorData> handSamples(double end) {
    std::vector<ZPR_SensorData> samples;
    HandShake(kRatesAndGravity).feedTo(end, [&](const ZPR_SensorData& s) { samples.push_back(s); });
    return samples;
}

/// Starts GStreamer, which comes before all that a test does with it.
inline void startGStreamer() {
    static const bool isReady = [] {
        // The machine's plugins are not looked for.
        g_setenv("GST_REGISTRY_DISABLE", "yes", TRUE);
        g_setenv("GST_PLUGIN_SYSTEM_PATH_1_0", "", TRUE);
        gst_init(nullptr, nullptr);
        return true;
    }();
    (void)isReady;
}

/// The element between two pads of the test's.
class ElementHarness {
public:
    explicit ElementHarness(const std::string& caps, int delay = 0, const char* output = nullptr) {
        startGStreamer();
        element_ = GST_ELEMENT(g_object_new(framehold::frameholdElementType(), nullptr));
        gst_object_ref_sink(element_);
        g_object_set(element_, "delay", delay, "focal-length", 200.0, "readout-time", 0.02,
                     "frame-clock", 1, "max-wait", guint64{0}, nullptr);
        bus_ = gst_bus_new();
        gst_element_set_bus(element_, bus_);
        harness_ = gst_harness_new_with_element(element_, "sink", "src");
        if (output != nullptr) gst_harness_set_sink_caps_str(harness_, output);
        gst_harness_set_src_caps_str(harness_, caps.c_str());
    }
    ~ElementHarness() {
        gst_harness_teardown(harness_);
        gst_element_set_bus(element_, nullptr);
        gst_object_unref(bus_);
        gst_object_unref(element_);
    }
    ElementHarness(const ElementHarness&) = delete;
    ElementHarness& operator=(const ElementHarness&) = delete;

    GstElement* element() const { return element_; }
    GstHarness* harness() const { return harness_; }

    bool pushSample(const ZPR_SensorData& s) const {
        gboolean isTaken = FALSE;
        g_signal_emit_by_name(element_, "push-sensor", static_cast<guint>(s.type), s.timestamp,
                              s.value[0], s.value[1], s.value[2], s.value[3], &isTaken);
        return isTaken;
    }
    void pushSamples(double end) const {
        for (const ZPR_SensorData& s : handSamples(end)) pushSample(s);
    }

    GstFlowReturn push(Buffer buffer) const { return gst_harness_push(harness_, buffer.release()); }
    void endStream() const { gst_harness_push_event(harness_, gst_event_new_eos()); }
    /// The next frame that has come out; none if there is none.
    Buffer pull() const { return Buffer(gst_harness_try_pull(harness_)); }
    /// Size of what comes out, as "width x height".
    std::string outputSize() const {
        GstCaps* caps = gst_pad_get_current_caps(harness_->sinkpad);
        int width = 0, height = 0;
        gst_structure_get(gst_caps_get_structure(caps, 0), "width", G_TYPE_INT, &width, "height",
                          G_TYPE_INT, &height, nullptr);
        gst_caps_unref(caps);
        return std::to_string(width) + "x" + std::to_string(height);
    }

    /// A number of the property `stats`.
    uint64_t count(const char* name) const {
        GstStructure* stats = nullptr;
        g_object_get(element_, "stats", &stats, nullptr);
        guint64 value = 0;
        gst_structure_get_uint64(stats, name, &value);
        gst_structure_free(stats);
        return value;
    }

    /// Text of the first message of a type; empty if there is none.
    std::string message(GstMessageType type) const {
        GstMessage* message = gst_bus_pop_filtered(bus_, type);
        if (message == nullptr) return "";
        GError* error = nullptr;
        if (type == GST_MESSAGE_ERROR) gst_message_parse_error(message, &error, nullptr);
        if (type == GST_MESSAGE_WARNING) gst_message_parse_warning(message, &error, nullptr);
        std::string text = error == nullptr ? GST_MESSAGE_TYPE_NAME(message) : error->message;
        g_clear_error(&error);
        gst_message_unref(message);
        return text;
    }

private:
    GstElement* element_;
    GstBus* bus_;
    GstHarness* harness_;
};

}  // namespace zpr_test
