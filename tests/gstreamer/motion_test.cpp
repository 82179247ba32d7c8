// Motion on its way to the element: records, the queue, and the pad that streams of samples end at.
#include "element_harness.h"
#include "gstreamer/frame_times.h"
#include "gstreamer/motion_queue.h"
#include "gstreamer/motion_record.h"
#include "support/test_support.h"

#include <thread>

using namespace zpr_test;
using framehold::MotionQueue;

namespace {

using std::chrono::milliseconds;

ZPR_SensorData rate(double time) { return sample(ZPR_SENSOR_RATE_1, time, 0.0, 0.0, 0.0); }
ZPR_SensorData gravity(double time) { return sample(ZPR_SENSOR_GRAVITY_1, time, 9.81, 0.0, 0.0); }

std::vector<double> takeUpTo(MotionQueue& queue, double time) {
    std::vector<double> times;
    queue.takeUpTo(time, [&](const ZPR_SensorData& s) { times.push_back(s.timestamp); });
    return times;
}

Buffer recordsOf(const std::vector<ZPR_SensorData>& samples, GstClockTime timestamp) {
    std::vector<uint8_t> bytes(samples.size() * framehold::kMotionRecordSize);
    for (size_t i = 0; i < samples.size(); ++i) {
        framehold::writeMotionRecord(samples[i], &bytes[i * framehold::kMotionRecordSize]);
    }
    Buffer buffer(gst_buffer_new_memdup(bytes.data(), bytes.size()));
    GST_BUFFER_PTS(buffer.get()) = timestamp;
    return buffer;
}

}  // namespace

TEST(MotionRecord, IsLittleEndian) {
    uint8_t bytes[framehold::kMotionRecordSize];
    framehold::writeMotionRecord(sample(5, 1.0, -2.0, 0.5, 0.25, 1e-300), bytes);
    const uint8_t start[] = {5, 0, 0,    0,    0, 0, 0, 0, 0, 0, 0, 0,
                             0, 0, 0xf0, 0x3f, 0, 0, 0, 0, 0, 0, 0, 0xc0};
    EXPECT_EQ(std::memcmp(bytes, start, sizeof start), 0);
    const ZPR_SensorData read = framehold::readMotionRecord(bytes);
    EXPECT_EQ(read.type, 5);
    EXPECT_EQ(read.timestamp, 1.0);
    EXPECT_EQ(read.value[3], 1e-300);
}

TEST(MotionQueue, GivesSamplesInOrderOfTimeAndNoLateOnes) {
    MotionQueue queue;
    for (const double time : {0.0, 0.02, 0.01, 0.03, 0.05}) EXPECT_TRUE(queue.push(rate(time)));
    EXPECT_EQ(takeUpTo(queue, 0.015), (std::vector<double>{0.0, 0.01, 0.02}));
    EXPECT_FALSE(queue.push(rate(0.02)));
    // Gravity may be later than rates.
    EXPECT_TRUE(queue.push(gravity(0.012)));
    EXPECT_EQ(takeUpTo(queue, 0.03), (std::vector<double>{0.012, 0.03}));
    EXPECT_EQ(takeUpTo(queue, 0.03), std::vector<double>());
    queue.rewind();
    EXPECT_EQ(takeUpTo(queue, 0.02), (std::vector<double>{0.0, 0.01, 0.012, 0.02}));
}

TEST(MotionQueue, ForgetsWhatIsOldAndWhatIsTooMuch) {
    MotionQueue queue;
    for (int i = 0; i < 1000; ++i) queue.push(rate(0.01 * i));
    takeUpTo(queue, 8.0);
    queue.rewind();
    EXPECT_GE(queue.firstTime().value(), 8.0 - MotionQueue::kKept - 0.02);
    for (size_t i = 0; i < MotionQueue::kMostWaiting + 1000; ++i) {
        queue.push(rate(20.0 + 0.01 * static_cast<double>(i)));
    }
    EXPECT_GT(queue.firstTime().value(), 29.9);
    queue.rewind();
    EXPECT_GT(queue.firstTime().value(), 29.9 - MotionQueue::kKept)
        << "kept though nobody takes it";
}

TEST(MotionQueue, WaitsEnd) {
    MotionQueue queue;
    queue.push(gravity(0.0));
    queue.push(rate(0.1));
    EXPECT_EQ(queue.waitFor(0.1, true, milliseconds(0)), MotionQueue::Wait::kReady);
    EXPECT_EQ(queue.waitFor(0.2, true, milliseconds(1)), MotionQueue::Wait::kTimedOut);
    // Not again before another sample.
    EXPECT_EQ(queue.waitFor(0.2, true, std::chrono::hours(1)), MotionQueue::Wait::kTimedOut);
    std::thread sensor([&] {
        queue.push(rate(0.15));
        queue.push(rate(0.25));
    });
    sensor.join();
    EXPECT_EQ(queue.waitFor(0.2, false, std::chrono::hours(1)), MotionQueue::Wait::kReady);
    queue.setFlushing(true);
    EXPECT_EQ(queue.waitFor(0.3, false, std::chrono::hours(1)), MotionQueue::Wait::kFlushing);
    queue.setFlushing(false);
    queue.setEnded(true);
    EXPECT_EQ(queue.waitFor(0.3, false, std::chrono::hours(1)), MotionQueue::Wait::kReady);
}

TEST(MotionQueue, OrientationsKeepTheirSign) {
    MotionQueue queue;
    queue.push(sample(5, 0.0, 0.0, 0.0, 0.6, 0.8));
    queue.push(sample(5, 0.1, 0.0, 0.0, -0.6, -0.8));
    std::vector<double> w;
    queue.takeUpTo(1.0, [&](const ZPR_SensorData& s) { w.push_back(s.value[3]); });
    EXPECT_EQ(w, (std::vector<double>{0.8, 0.8}));
}

TEST(FrameTimes, AreThoseOfTheClock) {
    using framehold::FrameClock;
    constexpr struct {
        FrameClock clock;
        double seconds;
    } kCases[] = {{FrameClock::kStreamTime, 5.5},
                  {FrameClock::kRunningTime, 1.25},
                  {FrameClock::kPipelineClock, 101.25}};
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    segment.rate = 2.0;
    segment.start = 3 * GST_SECOND;
    segment.time = 4 * GST_SECOND;
    segment.base = GST_SECOND / 2;
    for (const auto& c : kCases) {
        framehold::FrameTimes times;
        times.setSegment(segment);
        EXPECT_EQ(times.take(4500 * GST_MSECOND, c.clock, 100 * GST_SECOND), c.seconds);
    }
}

TEST(FrameTimes, BuffersWithoutTimestampsGoOn) {
    startGStreamer();
    framehold::FrameTimes times;
    times.setFrameRate(25.0);
    const Buffer buffer(gst_buffer_new());
    for (int n = 0; n < 6; ++n) {
        const GstClockTime timestamp = times.timestampOf(buffer.get());
        EXPECT_EQ(timestamp, static_cast<GstClockTime>(n) * 40 * GST_MSECOND);
        times.take(timestamp, framehold::FrameClock::kRunningTime, 0);
        if (n == 3) times.restart();
    }
}

TEST(FrameTimes, FramesOfATableAreCounted) {
    framehold::FrameTimes times;
    times.setFrameRate(25.0);
    std::vector<double> table;
    for (int i = 0; i < 100; ++i) table.push_back(7.0 + 0.041 * i);
    const auto number = [&](GstClockTime timestamp) {
        return std::lround((times.take(timestamp, table, "frames.csv") - 7.0) / 0.041);
    };
    EXPECT_EQ(number(0), 0);
    EXPECT_EQ(number(40 * GST_MSECOND), 1);
    EXPECT_EQ(number(95 * GST_MSECOND), 2) << "a frame that is late";
    EXPECT_EQ(number(215 * GST_MSECOND), 5) << "after two that are missing";
    times.restart();
    EXPECT_EQ(number(2 * GST_SECOND), 50) << "after a seek";
    EXPECT_THROW(number(4100 * GST_MSECOND), std::runtime_error);
}

// The same pictures come out, whatever the clock of frames and samples is.
TEST(MotionPad, TakesRecordsOfAnyClock) {
    constexpr struct {
        const char* clock;
        double baseTime;  // seconds on the pipeline's clock
        double shift;     // seconds from running time to the times of records
    } kCases[] = {{"running-time", 12345.0, 0.0},
                  {"stream-time", 12345.0, 0.0},
                  {"pipeline-clock", 12345.0, 12345.0},
                  {"auto", 0.0, 777.0}};
    const Stream stream(128, 96);
    std::vector<uint64_t> expected;
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.clock);
        const ElementHarness element(stream.caps(), 2);
        gst_util_set_object_arg(G_OBJECT(element.element()), "frame-clock", c.clock);
        gst_element_set_base_time(element.element(),
                                  static_cast<GstClockTime>(c.baseTime * GST_SECOND));
        GstHarness* motion = gst_harness_new_with_element(element.element(), "motion", nullptr);
        gst_harness_set_src_caps_str(motion, framehold::kMotionMediaType);
        std::vector<ZPR_SensorData> samples = handSamples(1.0);
        for (size_t i = 0; i < samples.size(); i += 10) {
            const auto timestamp = static_cast<GstClockTime>(samples[i].timestamp * GST_SECOND);
            std::vector<ZPR_SensorData> part(
                samples.begin() + static_cast<ptrdiff_t>(i),
                samples.begin() + static_cast<ptrdiff_t>(std::min(i + 10, samples.size())));
            for (ZPR_SensorData& s : part) s.timestamp += c.shift;
            EXPECT_EQ(gst_harness_push(motion, recordsOf(part, timestamp).release()), GST_FLOW_OK);
        }
        gst_harness_push_event(motion, gst_event_new_eos());
        std::vector<uint64_t> sums;
        for (int n = 0; n < 12; ++n) element.push(stream.frame(n));
        while (const Buffer buffer = element.pull()) sums.push_back(stream.sumOf(buffer.get()));
        EXPECT_EQ(sums.size(), 10u);
        if (expected.empty()) expected = sums;
        EXPECT_EQ(sums, expected);
        EXPECT_GT(element.count("samples-taken"), 100u);
        gst_harness_teardown(motion);
    }
}

TEST(MotionPad, RefusesWhatItCannotTake) {
    startGStreamer();
    constexpr int kTurn = ZPR_SENSOR_ROTATION_1;
    const struct {
        const char* axes;
        Buffer buffer;
        const char* error;
    } kCases[] = {
        {"XYZ", Buffer(gst_buffer_new_allocate(nullptr, 50, nullptr)),
         "motion: a buffer has 50 bytes, which are no whole records of 48"},
        {"XYz", recordsOf({sample(kTurn, 0.0, 0.0, 0.0, 0.0, 1.0)}, GST_CLOCK_TIME_NONE), "axes: "},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.axes);
        const ElementHarness element(Stream(128, 96).caps());
        gst_element_set_state(element.element(), GST_STATE_READY);
        g_object_set(element.element(), "axes", c.axes, nullptr);
        gst_element_set_state(element.element(), GST_STATE_PLAYING);
        GstHarness* motion = gst_harness_new_with_element(element.element(), "motion", nullptr);
        gst_harness_set_src_caps_str(motion, framehold::kMotionMediaType);
        GstMemory* memory = gst_buffer_peek_memory(c.buffer.get(), 0);
        EXPECT_EQ(gst_harness_push(motion, gst_buffer_ref(c.buffer.get())), GST_FLOW_ERROR);
        EXPECT_EQ(GST_MINI_OBJECT_REFCOUNT_VALUE(memory), 1) << "still mapped";
        const std::string text = element.message(GST_MESSAGE_ERROR);
        EXPECT_EQ(text.substr(0, std::strlen(c.error)), c.error) << text;
        gst_harness_teardown(motion);
    }
}

TEST(MotionPad, IsReleasedWhileItWaitsForRoom) {
    const ElementHarness element(Stream(128, 96).caps());
    GstPad* motion = gst_element_request_pad_simple(element.element(), "motion");
    GstPad* sensor = gst_pad_new("sensor", GST_PAD_SRC);
    gst_pad_set_active(sensor, TRUE);
    ASSERT_EQ(gst_pad_link(sensor, motion), GST_PAD_LINK_OK);
    gst_pad_push_event(sensor, gst_event_new_stream_start("sensor"));
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_pad_push_event(sensor, gst_event_new_segment(&segment));
    std::vector<ZPR_SensorData> many;
    for (int i = 0; i < 5000; ++i) many.push_back(rate(0.001 * i));
    GstFlowReturn flow = GST_FLOW_OK;
    std::thread thread(
        [&] { flow = gst_pad_push(sensor, recordsOf(many, GST_CLOCK_TIME_NONE).release()); });
    // No frame comes, so what is in the pad stays there.
    while (GST_PAD_STREAM_TRYLOCK(motion)) {
        GST_PAD_STREAM_UNLOCK(motion);
        std::this_thread::yield();
    }
    gst_element_release_request_pad(element.element(), motion);
    thread.join();
    EXPECT_EQ(flow, GST_FLOW_FLUSHING);
    gst_pad_set_active(sensor, FALSE);
    gst_object_unref(sensor);
    gst_object_unref(motion);
}
