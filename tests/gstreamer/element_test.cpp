// The element between pads of the test's: what comes out, and when.
#include "element_harness.h"
#include "support/test_support.h"
#include "zpr_smoothing_policy.h"

#include <chrono>
#include <functional>
#include <thread>

using namespace zpr_test;

namespace {

constexpr double kSeconds = 1.0 / GST_SECOND;

std::vector<uint64_t> pullSums(const ElementHarness& element, const Stream& stream) {
    std::vector<uint64_t> sums;
    while (const Buffer buffer = element.pull()) {
        EXPECT_EQ(GST_BUFFER_PTS(buffer.get()), sums.size() * kPeriod);
        sums.push_back(stream.sumOf(buffer.get()));
    }
    return sums;
}

/// Sums of what the element makes of the first frames.
std::vector<uint64_t> elementSums(const ElementHarness& element, const Stream& stream, int frames,
                                  const Layout& layout = {}) {
    element.pushSamples(frames / 30.0 + 1.0);
    for (int n = 0; n < frames; ++n) {
        EXPECT_EQ(element.push(stream.frame(n, layout)), GST_FLOW_OK);
    }
    element.endStream();
    return pullSums(element, stream);
}

/// Sums of what the library makes of them, called directly.
std::vector<uint64_t> librarySums(const Stream& stream, int frames, int delay) {
    ZPR_Param param = makeParam(stream.width(), stream.height());
    param.fieldOfViewMode = ZPR_FOV_FOCAL_LENGTH;
    param.fieldOfView = 200.0;
    param.readoutTime = 0.02;
    param.delayFrames = delay;
    param.smoothingLevel = 9;
    const Instance instance(param);
    ZPR_SmoothingPolicy policy;
    ZPR_StartSmoothingPolicy(&policy, &param);
    const std::vector<ZPR_SensorData> samples = handSamples(frames / 30.0 + 1.0);
    size_t next = 0;
    std::vector<uint64_t> sums;
    Frame input(stream.width(), stream.height()), output(stream.width(), stream.height());
    for (int n = 0; n < frames + delay; ++n) {
        if (n < frames) stream.draw(n, input.image);
        const double last =
            static_cast<double>(kPeriod * static_cast<GstClockTime>(frames - 1)) * kSeconds;
        const double time = n < frames ? static_cast<double>(kPeriod) * n * kSeconds
                                       : last + (n - frames + 1) * (1.0 / 30.0);
        while (next < samples.size() &&
               (next == 0 || samples[next - 1].timestamp < time + param.readoutTime)) {
            ZPR_SensorData s = samples[next++];
            s.timestamp += 1.0;
            ZPR_FeedSmoothingPolicy(&policy, &s);
            ZPR_SetSensorData(instance, &s);
        }
        param.smoothingLevel = ZPR_ChooseSmoothingLevel(&policy, time + 1.0);
        std::memset(output.image.plane[0], 16,
                    static_cast<size_t>(stream.width() * stream.height()));
        std::memset(output.image.plane[1], 128,
                    static_cast<size_t>(stream.width() * stream.height() / 2));
        if (ZPR_Stabilize(instance, time + 1.0, &input.image, &output.image, &param) == ZPR_OK) {
            sums.push_back(checksum(output.image));
        }
    }
    return sums;
}

}  // namespace

TEST(Element, FramesEqualTheLibrarysWithAnyLayout) {
    constexpr struct {
        const char* name;
        int delay;
        GstVideoFormat format;
        Layout layout;
        uint64_t copies;
    } kCases[] = {
        {"plain", 0, GST_VIDEO_FORMAT_NV12, {}, 0},
        {"delayed", 4, GST_VIDEO_FORMAT_NV12, {}, 0},
        {"other order of chroma", 4, GST_VIDEO_FORMAT_NV21, {}, 0},
        {"strides and offset", 0, GST_VIDEO_FORMAT_NV12, {150, 170, 33}, 0},
        {"one stride, delayed", 4, GST_VIDEO_FORMAT_NV12, {144, 144, 32}, 0},
        {"two strides, delayed", 4, GST_VIDEO_FORMAT_NV12, {144, 160, 0}, 12},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        const Stream stream(128, 96, c.format);
        const ElementHarness element(stream.caps(), c.delay);
        EXPECT_EQ(elementSums(element, stream, 12, c.layout), librarySums(stream, 12, c.delay));
        EXPECT_EQ(element.count("input-copies"), c.copies);
        EXPECT_EQ(element.count("output-copies"), 0u);
    }
}

TEST(Element, LayoutsChangeFromFrameToFrame) {
    const Stream stream(128, 96);
    const ElementHarness element(stream.caps(), 0);
    element.pushSamples(2.0);
    EXPECT_EQ(element.push(Buffer(gst_buffer_new_allocate(nullptr, 100, nullptr))), GST_FLOW_ERROR);
    g_object_set(element.element(), "delay", 3, nullptr);
    for (int n = 0; n < 12; ++n) {
        element.push(stream.frame(n, n % 3 == 0 ? Layout{} : Layout{128 + 16 * (n % 3), 192, n}));
    }
    element.endStream();
    EXPECT_EQ(pullSums(element, stream), librarySums(stream, 12, 3));
}

// The library stretches the last columns of other widths than multiples of its blocks.
TEST(Element, OtherWidthsArePaddedWhateverDownstreamTakes) {
    const Stream stream(200, 96);
    std::vector<uint64_t> sums[2];
    for (const bool takesMeta : {false, true}) {
        const ElementHarness element(stream.caps(), 2);
        if (takesMeta) {
            gst_harness_add_propose_allocation_meta(element.harness(), GST_VIDEO_META_API_TYPE,
                                                    nullptr);
            gst_pad_mark_reconfigure(GST_PAD(element.element()->srcpads->data));
        }
        sums[takesMeta] = elementSums(element, stream, 6);
        EXPECT_EQ(element.count("output-copies"), takesMeta ? 0u : 6u);
    }
    EXPECT_EQ(sums[0].size(), 6u);
    EXPECT_EQ(sums[0], sums[1]);
}

TEST(Element, TheEndPushesEveryFrame) {
    const Stream stream(128, 96);
    for (const int frames : {1, 3, 5, 9}) {
        SCOPED_TRACE(frames);
        const ElementHarness element(stream.caps(), 5);
        EXPECT_EQ(elementSums(element, stream, frames), librarySums(stream, frames, 5));
    }
}

TEST(Element, AFlushStartsOver) {
    const Stream stream(128, 96);
    const ElementHarness element(stream.caps(), 3);
    element.pushSamples(1.0);
    for (int n = 0; n < 6; ++n) element.push(stream.frame(n));
    while (element.pull()) continue;
    gst_harness_push_event(element.harness(), gst_event_new_flush_start());
    EXPECT_EQ(element.push(stream.frame(7)), GST_FLOW_FLUSHING);
    gst_harness_push_event(element.harness(), gst_event_new_flush_stop(TRUE));
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_harness_push_event(element.harness(), gst_event_new_segment(&segment));
    EXPECT_EQ(elementSums(element, stream, 8), librarySums(stream, 8, 3));
}

TEST(Element, SegmentsGapsAndSizesDrainFirst) {
    const Stream stream(128, 96), larger(256, 128);
    const struct {
        const char* name;
        std::function<void(const ElementHarness&)> change;
    } kCases[] = {
        {"segment",
         [&](const ElementHarness& element) {
             GstSegment segment;
             gst_segment_init(&segment, GST_FORMAT_TIME);
             segment.start = segment.time = GST_SECOND;
             gst_harness_push_event(element.harness(), gst_event_new_segment(&segment));
         }},
        {"end of a segment",
         [&](const ElementHarness& element) {
             gst_harness_push_event(element.harness(),
                                    gst_event_new_segment_done(GST_FORMAT_TIME, 0));
         }},
        {"gap of seconds",
         [&](const ElementHarness& element) { element.push(stream.frame(6 + 60)); }},
        {"time that goes back",
         [&](const ElementHarness& element) { element.push(stream.frame(2)); }},
        {"size",
         [&](const ElementHarness& element) {
             gst_harness_set_src_caps_str(element.harness(), larger.caps().c_str());
             element.push(larger.frame(6));
         }},
    };
    const std::vector<uint64_t> expected = librarySums(stream, 6, 3);
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        const ElementHarness element(stream.caps(), 3);
        element.pushSamples(1.2);
        for (int n = 0; n < 6; ++n) element.push(stream.frame(n));
        c.change(element);
        EXPECT_EQ(pullSums(element, stream), expected);
    }
}

TEST(Element, NewSizesGoOn) {
    const ElementHarness element(Stream(128, 96).caps(), 3);
    element.pushSamples(3.0);
    int number = 0;
    for (const auto& [width, height] : {std::pair(128, 96), {320, 240}, {66, 50}, {128, 96}}) {
        const Stream stream(width, height);
        gst_harness_set_src_caps_str(element.harness(), stream.caps().c_str());
        for (int i = 0; i < 5; ++i) EXPECT_EQ(element.push(stream.frame(number++)), GST_FLOW_OK);
        EXPECT_EQ(element.outputSize(), std::to_string(width) + "x" + std::to_string(height));
    }
    element.endStream();
    for (int n = 0; n < number; ++n) {
        const Buffer buffer = element.pull();
        ASSERT_TRUE(buffer) << n;
        EXPECT_EQ(GST_BUFFER_PTS(buffer.get()), static_cast<GstClockTime>(n) * kPeriod);
    }
}

TEST(Element, DownstreamChoosesTheSize) {
    constexpr struct {
        const char* output;
        const char* size;  // empty: refused
    } kCases[] = {
        {"video/x-raw,width=64,height=48", "64x48"},
        {"video/x-raw,width=[2,100],height=[2,1000]", "100x96"},
        {"video/x-raw,width=256,height=96", ""},
    };
    const Stream stream(128, 96);
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.output);
        const ElementHarness element(stream.caps(), 0, c.output);
        const GstFlowReturn flow = element.push(stream.frame(0));
        EXPECT_EQ(flow == GST_FLOW_OK, *c.size != '\0') << gst_flow_get_name(flow);
        if (flow == GST_FLOW_OK) {
            EXPECT_EQ(element.outputSize(), c.size);
        }
    }
}

// A filter of caps may change between a frame and the next.
TEST(Element, AFrameThatIsNoLongerWantedIsDropped) {
    const Stream stream(128, 96);
    const ElementHarness element(stream.caps());
    element.push(stream.frame(0));
    const auto refuse = [](GstPad* pad, GstPadProbeInfo* info, gpointer) {
        gst_pad_mark_reconfigure(GST_PAD_PEER(pad));
        gst_buffer_unref(GST_PAD_PROBE_INFO_BUFFER(info));
        GST_PAD_PROBE_INFO_FLOW_RETURN(info) = GST_FLOW_NOT_NEGOTIATED;
        return GST_PAD_PROBE_HANDLED;
    };
    const gulong probe = gst_pad_add_probe(element.harness()->sinkpad, GST_PAD_PROBE_TYPE_BUFFER,
                                           refuse, nullptr, nullptr);
    EXPECT_EQ(element.push(stream.frame(1)), GST_FLOW_OK);
    gst_pad_remove_probe(element.harness()->sinkpad, probe);
    EXPECT_EQ(element.push(stream.frame(2)), GST_FLOW_OK);
    EXPECT_EQ(element.count("frames-dropped"), 1u);
    EXPECT_EQ(element.count("frames-out"), 2u);
}

TEST(Element, CapsThatAFlushHasCutShortCount) {
    const Stream stream(128, 96), larger(256, 128);
    const ElementHarness element(stream.caps());
    element.push(stream.frame(0));
    GstPad* src = GST_PAD(element.element()->srcpads->data);
    gst_pad_push_event(src, gst_event_new_flush_start());
    EXPECT_EQ(element.push(stream.frame(1)), GST_FLOW_FLUSHING);
    EXPECT_EQ(element.count("frames-out"), 1u);
    gst_harness_set_src_caps_str(element.harness(), larger.caps().c_str());
    gst_pad_push_event(src, gst_event_new_flush_stop(TRUE));
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_harness_push_event(element.harness(), gst_event_new_segment(&segment));
    EXPECT_EQ(element.push(larger.frame(2)), GST_FLOW_OK);
    EXPECT_EQ(element.outputSize(), "256x128");
}

TEST(Element, LatencyIsThatOfDelayAndReadout) {
    constexpr struct {
        int delay;
        double offset;
        guint64 sensorDelay;
        GstClockTime latency;
    } kCases[] = {
        {0, 0.0, 0, 20 * GST_MSECOND},
        {15, 0.0, 0, 520 * GST_MSECOND},
        {15, -0.015, 0, 505 * GST_MSECOND},
        {3, -0.05, 7 * GST_MSECOND, 107 * GST_MSECOND},
    };
    for (const auto& c : kCases) {
        const ElementHarness element(Stream(128, 96).caps(), c.delay);
        g_object_set(element.element(), "time-offset", c.offset, "sensor-delay", c.sensorDelay,
                     nullptr);
        gst_harness_set_upstream_latency(element.harness(), 5 * GST_MSECOND);
        element.push(Stream(128, 96).frame(0));
        EXPECT_EQ(gst_harness_query_latency(element.harness()), c.latency + 5 * GST_MSECOND);
    }
}

TEST(Element, FramesWaitForTheirSamples) {
    const Stream stream(128, 96);
    const ElementHarness element(stream.caps());
    g_object_set(element.element(), "max-wait", guint64{5 * GST_SECOND}, nullptr);
    std::thread sensor([&] {
        for (const ZPR_SensorData& s : handSamples(0.4)) {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            element.pushSample(s);
        }
    });
    for (int n = 0; n < 10; ++n) element.push(stream.frame(n));
    sensor.join();
    EXPECT_EQ(pullSums(element, stream), librarySums(stream, 10, 0));
    EXPECT_EQ(element.count("frames-without-motion"), 0u);
}

TEST(Element, WaitsAreBoundedAndEndWithAFlush) {
    using Clock = std::chrono::steady_clock;
    const Stream stream(128, 96);
    const ElementHarness element(stream.caps());
    g_object_set(element.element(), "max-wait", guint64{20 * GST_MSECOND}, nullptr);
    element.pushSamples(0.05);
    for (int n = 0; n < 30; ++n) EXPECT_EQ(element.push(stream.frame(n)), GST_FLOW_OK);
    // Only the first of them has waited, since nothing has come after that.
    EXPECT_GE(element.count("frames-without-motion"), 28u);
    EXPECT_LT(element.count("average-wait-time"), 5 * GST_MSECOND);

    g_object_set(element.element(), "max-wait", G_MAXUINT64, nullptr);
    element.pushSample(sample(ZPR_SENSOR_RATE_1, 0.06, 0.0, 0.0, 0.0));
    const Clock::time_point start = Clock::now();
    std::thread flusher([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        gst_harness_push_event(element.harness(), gst_event_new_flush_start());
    });
    EXPECT_EQ(element.push(stream.frame(30)), GST_FLOW_FLUSHING);
    flusher.join();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(20));
}

TEST(Element, LateFramesAreNotDrawn) {
    const Stream stream(128, 96);
    const ElementHarness element(stream.caps(), 2);
    element.pushSamples(1.0);
    gst_harness_push_upstream_event(
        element.harness(),
        gst_event_new_qos(GST_QOS_TYPE_UNDERFLOW, 1.5, 2 * kPeriod, 3 * kPeriod));
    const std::vector<uint64_t> expected = librarySums(stream, 12, 2);
    for (int n = 0; n < 12; ++n) EXPECT_EQ(element.push(stream.frame(n)), GST_FLOW_OK);
    element.endStream();
    for (size_t n = 7; n < 12; ++n) {
        const Buffer buffer = element.pull();
        ASSERT_TRUE(buffer) << n;
        EXPECT_EQ(GST_BUFFER_PTS(buffer.get()), n * kPeriod);
        EXPECT_EQ(stream.sumOf(buffer.get()), expected[n]);
    }
    EXPECT_EQ(element.count("frames-dropped"), 7u);
    EXPECT_EQ(element.message(GST_MESSAGE_QOS), "qos");
}

TEST(Element, SmoothingChangesWhilePlaying) {
    const Stream stream(128, 96);
    std::vector<uint64_t> sums[2];
    for (const bool changes : {false, true}) {
        const ElementHarness element(stream.caps());
        element.pushSamples(2.0);
        for (int n = 0; n < 30; ++n) {
            if (changes && n == 15) g_object_set(element.element(), "smoothing", 1, nullptr);
            element.push(stream.frame(n));
        }
        sums[changes] = pullSums(element, stream);
    }
    EXPECT_TRUE(std::equal(sums[0].begin(), sums[0].begin() + 15, sums[1].begin()));
    EXPECT_NE(sums[0][29], sums[1][29]);
}

TEST(Element, MessagesNameTheProperty) {
    constexpr struct {
        const char* property;
        const char* value;
        const char* text;
    } kCases[] = {
        {"motion-file", "/missing.gcsv", "motion-file: /missing.gcsv"},
        {"clip-file", "/missing.json", "clip-file: /missing.json"},
        {"axes", "XXY", "axes: "},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.property);
        const ElementHarness element(Stream(128, 96).caps());
        gst_element_set_state(element.element(), GST_STATE_READY);
        g_object_set(element.element(), c.property, c.value, nullptr);
        EXPECT_EQ(gst_element_set_state(element.element(), GST_STATE_PLAYING),
                  GST_STATE_CHANGE_FAILURE);
        const std::string text = element.message(GST_MESSAGE_ERROR);
        EXPECT_EQ(text.substr(0, std::strlen(c.text)), c.text) << text;
    }
}

TEST(Element, WarnsOfSensorsThatOutrunTheLibrary) {
    const Stream stream(128, 96);
    const ElementHarness element(stream.caps(), 30);
    for (int i = 0; i < 3000; ++i) {
        element.pushSample(sample(ZPR_SENSOR_RATE_1, i / 1500.0, 0.0, 0.0, 0.0));
    }
    for (int n = 0; n < 4; ++n) element.push(stream.frame(n));
    const std::string text = element.message(GST_MESSAGE_WARNING);
    EXPECT_EQ(text.substr(0, 42), "delay: 1500 samples per second outrun what") << text;
    EXPECT_EQ(element.message(GST_MESSAGE_WARNING), "");
}

TEST(Element, DropsSamplesThatCannotBeUsed) {
    const Stream stream(128, 96);
    const ElementHarness element(stream.caps());
    element.pushSamples(0.5);
    element.push(stream.frame(3));
    EXPECT_FALSE(element.pushSample(sample(ZPR_SENSOR_RATE_1, 0.05, 0.0, 0.0, 0.0))) << "late";
    EXPECT_FALSE(element.pushSample(sample(7, 1.0, 0.0, 0.0, 0.0)));
    EXPECT_FALSE(element.pushSample(sample(3, std::nan(""), 0.0, 0.0, 0.0)));
    EXPECT_TRUE(element.pushSample(sample(ZPR_SENSOR_RATE_1, 0.6, 0.0, 0.0, 0.0)));
    EXPECT_EQ(element.count("samples-dropped"), 3u);
}

TEST(Element, ChangesItsStateAThousandTimes) {
    const Stream stream(128, 96);
    const ElementHarness element(stream.caps(), 2);
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    Random random(1);
    uint64_t frames = 0;  // since the last start
    for (int i = 0; i < 1000; ++i) {
        constexpr GstState kStates[] = {GST_STATE_NULL, GST_STATE_READY, GST_STATE_PAUSED,
                                        GST_STATE_PLAYING};
        const GstState state = kStates[random.integer(0, 3)];
        ASSERT_NE(gst_element_set_state(element.element(), state), GST_STATE_CHANGE_FAILURE);
        if (state < GST_STATE_PAUSED) frames = 0;
        if (state < GST_STATE_PAUSED || i % 10 != 0) continue;
        // A stream begins anew: its start, its caps and its segment were forgotten.
        gst_pad_push_event(element.harness()->srcpad, gst_event_new_stream_start("a"));
        GstCaps* caps = gst_caps_from_string(stream.caps().c_str());
        gst_pad_push_event(element.harness()->srcpad, gst_event_new_caps(caps));
        gst_caps_unref(caps);
        gst_pad_push_event(element.harness()->srcpad, gst_event_new_segment(&segment));
        for (int n = 0; n < 4; ++n) ASSERT_EQ(element.push(stream.frame(n)), GST_FLOW_OK);
        while (element.pull()) continue;
        frames += 4;
        ASSERT_EQ(element.count("frames-in"), frames);
    }
}
