// How `framehold stabilize` names its results, and what it says of the camera's path.
#include "clip/clip_inputs.h"
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
    ZPR_Handle instance = nullptr;
    ASSERT_EQ(ZPR_Init(nullptr, &param, &instance), ZPR_OK);
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
    ZPR_Deinit(&instance);
}

}  // namespace
