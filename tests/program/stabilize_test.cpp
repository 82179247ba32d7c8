// What `framehold stabilize` feeds the library, what it makes of frames and of the camera's path.
#include "media/padded_frame.h"
#include "stabilize/batch_plan.h"
#include "stabilize/motion_samples.h"
#include "stabilize/path_observer.h"
#include "support/test_support.h"

#include <algorithm>
#include <cmath>

using namespace framehold;
using namespace zpr_test;

namespace {

TEST(OutputNames, FollowThePattern) {
    const std::tuple<const char*, const char*, const char*> kCases[] = {
        {"", "a/walk.mp4", "a/walk-stable.mp4"},
        {"", "walk.MOV", "walk-stable.MOV"},
        {"", "walk.avi", "walk-stable.mp4"},
        {"", "-", "-"},
        {"-", "walk.mp4", "-"},
        {"one.mkv", "walk.mp4", "one.mkv"},
        {"out/", "a/walk.mkv", "out/walk-stable.mkv"},
        {"{folder}/{name}.{ext}", "/a/b/../c/walk.mp4", "c/walk.mp4"},
        {"{name}{ext}", "walk", "walk"},
    };
    for (const auto& [pattern, video, name] : kCases)
        EXPECT_EQ(nameFor(pattern, video, kStablePattern), name);
    for (const char* bad : {"{nam}.mp4", "{name"})
        EXPECT_THROW(nameFor(bad, "walk.mp4", kStablePattern), std::invalid_argument) << bad;
    EXPECT_THROW(nameFor("out/", "-", kStablePattern), std::invalid_argument);
}

TEST(MotionSamples, AreOnTheFramesClockAndInDeviceAxes) {
    ClipInputs clip;
    clip.video = {800, 600, 30.0, 0};
    clip.log = MotionLog();
    for (int i = 0; i <= 2000; ++i) clip.log->rates.push_back({0.001 * i, {1.0, 2.0, 3.0}});
    clip.log->orientation = AxisMapping::fromLetters("YxZ");
    clip.metadata.clockDrift = 0.25;
    ClipOptions options;
    const ClipSettings settings = resolveSettings(options, clip);
    const MotionSamples motion = prepareMotion(clip, settings);
    ASSERT_GT(motion.samples.size(), 100u);
    EXPECT_EQ(motion.samples[0].type, ZPR_SENSOR_GRAVITY_1);
    EXPECT_EQ(motion.samples[0].value[0], 9.81);
    EXPECT_EQ(motion.samples[1].type, ZPR_SENSOR_RATE_1);
    EXPECT_EQ(motion.samples[1].timestamp, motion.samples[0].timestamp);
    const double* rate = motion.samples.back().value;
    EXPECT_NEAR(rate[0], 2.0, 1e-12);
    EXPECT_NEAR(rate[1], -1.0, 1e-12);
    EXPECT_NEAR(motion.samples.back().timestamp, 2.0 / 1.25, 1e-9);
    const double seconds = motion.samples.back().timestamp;
    EXPECT_LE(static_cast<double>(motion.samples.size() - 2) / seconds, settings.largestSampleRate);
    EXPECT_NE(motion.notes[1].find("averaged to"), std::string::npos);

    clip.log->orientations = {{0.5, 1.0, 0.0, 0.0, 0.0}, {0.6, 0.8, 0.6, 0.0, 0.0}};
    options.sensorMask = ZPR_SENSOR_BIT(ZPR_SENSOR_ROTATION_2);
    clip.log->orientation = AxisMapping();
    const auto fed = prepareMotion(clip, resolveSettings(options, clip)).samples;
    ASSERT_EQ(fed.size(), 2u);
    EXPECT_EQ(fed[1].type, ZPR_SENSOR_ROTATION_2);
    EXPECT_EQ(fed[1].value[0], 0.6);
    EXPECT_EQ(fed[1].value[3], 0.8);
}

TEST(PaddedFrame, RepeatsEdgesAndCutsThemOff) {
    for (const int width : {128, 854, 800, 130}) {
        SCOPED_TRACE(width);
        AvPtr<AVFrame> frame = makeNv12Frame(width, 2);
        for (int x = 0; x < width; ++x) frame->data[1][x] = static_cast<uint8_t>(3 * x);
        const int paddedWidth = (width + 127) / 128 * 128;
        PaddedFrame padded(width, paddedWidth);
        AvPtr<AVFrame> placed(av_frame_clone(padded.pad(*frame)));
        const int left = (paddedWidth - width) / 4 * 2, right = paddedWidth - 1;
        for (const auto& [x, source] :
             {std::pair{0, 0}, {1, 1}, {left + 5, 5}, {right, width - 1}}) {
            EXPECT_EQ(placed->data[1][x], static_cast<uint8_t>(3 * source));
        }
        padded.cut(*placed);
        EXPECT_EQ(placed->width, width);
        EXPECT_EQ(placed->data[1][7], 21);
    }
}

/// Renders the picture's columns as levels, so that the output tells where its centre is taken
/// from.
class ColumnPicture {
public:
    ColumnPicture() : in_(256, 128), out_(256, 128) {
        for (size_t i = 0; i < in_.bytes.size(); ++i) in_.bytes[i] = static_cast<uint8_t>(i % 256);
    }

    /// The input column at the output's centre, or none while the library buffers.
    std::optional<int> stabilize(ZPR_Handle instance, double time) {
        const int code = ZPR_Stabilize(instance, time, &in_.image, &out_.image, nullptr);
        if (code != ZPR_OK) return std::nullopt;
        return out_.bytes[256 * 64 + 128];
    }

private:
    Frame in_;
    Frame out_;
};

TEST(PathObserver, SeesThePathThatTheLibraryRenders) {
    ZPR_Param param = makeParam(256, 128);
    param.fieldOfViewMode = ZPR_FOV_FOCAL_LENGTH;
    param.fieldOfView = 300.0;
    param.readoutTime = 0.0;
    param.delayFrames = 8;
    const Instance instance(param);
    PathObserver observer(param);
    const auto feed = [&](const ZPR_SensorData& s) {
        ZPR_SetSensorData(instance, &s);
        observer.addSample(s);
    };
    ColumnPicture picture;
    feed(sample(ZPR_SENSOR_GRAVITY_1, 1.0, 9.81, 0.0, 0.0));
    double fed = 1.0;
    double largest = 0.0;
    for (int i = 0; i < 60; ++i) {
        const double time = 1.0 + i / 30.0;
        // About the picture's vertical axis, back and forth; nothing more in the last frames.
        for (; fed < std::min(time + 0.005, 2.6); fed += 0.005) {
            feed(sample(ZPR_SENSOR_RATE_1, fed, 0.4 * std::sin(12.0 * fed), 0.0, 0.0));
        }
        const std::optional<int> column = picture.stabilize(instance, time);
        const std::optional<ObservedPath> path = observer.takeFrame(time);
        ASSERT_EQ(column.has_value(), path.has_value()) << i;
        if (!path) continue;
        const bool isKnown = time - 8 / 30.0 < 2.6;
        ASSERT_EQ(path->measured.has_value(), isKnown) << i;
        ASSERT_EQ(path->corrected.has_value(), isKnown) << i;
        if (!isKnown) continue;
        // The virtual camera's axis, seen by the device.
        const Quaternion seen = path->measured->inverse() * *path->corrected;
        const Quaternion axis = seen * Quaternion(0.0, 0.0, 0.0, -1.0) * seen.inverse();
        const double expected = 128.0 + 300.0 * axis.y / axis.z;
        EXPECT_NEAR(*column, expected, 1.5) << i;
        const double margin = 256 * 0.1;
        EXPECT_NEAR(path->marginUsed, std::abs(expected - 128.0) / margin, 0.12) << i;
        largest = std::max(largest, path->marginUsed);
    }
    EXPECT_GT(largest, 0.2) << "nothing moved";
    EXPECT_LE(largest, 1.01);
}

}  // namespace
