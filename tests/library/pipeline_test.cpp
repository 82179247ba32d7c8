// The exported functions on a whole instance.
#include "support/test_support.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>

using namespace zpr_test;

namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr int kRefused = ZPR_ERR_INVALID_PARAM;

/// An instance that is expected to take what it is given.
class Stabilizer : public Instance {
public:
    using Instance::Instance;

    void add(const ZPR_SensorData& s) { EXPECT_EQ(ZPR_SetSensorData(*this, &s), ZPR_OK); }

    int stabilize(double t, const ZPR_Image* in, ZPR_Image* out,
                  const ZPR_Param* update = nullptr) {
        return ZPR_Stabilize(*this, t, in, out, update);
    }
    /// Takes a frame that is `value` all over.
    int stabilize(double t, int value, Frame& output) {
        Frame input(output.image.width, output.image.height);
        input.fill(static_cast<uint8_t>(value));
        return stabilize(t, &input.image, &output.image);
    }
    int drain(Frame& output) { return stabilize(kNan, nullptr, &output.image); }
};

/// The value of a frame that is the same all over, as its luma and its last chroma row show it.
int valueOf(const Frame& frame) {
    const ZPR_Image& i = frame.image;
    const int luma = i.plane[0][i.pitch[0] * (i.height / 2) + i.width / 2];
    return i.plane[1][i.pitch[1] * (i.height / 2 - 1)] == luma ? luma : -1;
}

TEST(Lifecycle, NullArguments) {
    const ZPR_Param param = makeParam(64, 64);
    const ZPR_SensorData data = sample(1, 1.0, 0, 0, 9.81);
    ZPR_Handle handle = nullptr;
    Frame frame(64, 64);
    EXPECT_EQ(ZPR_Init(nullptr, nullptr, &handle), kRefused);
    EXPECT_EQ(ZPR_Init(nullptr, &param, nullptr), kRefused);
    EXPECT_EQ(ZPR_Deinit(nullptr), ZPR_OK);
    EXPECT_EQ(ZPR_Deinit(&handle), ZPR_OK);
    EXPECT_EQ(ZPR_Reset(nullptr), kRefused);
    EXPECT_EQ(ZPR_SetSensorData(nullptr, &data), kRefused);
    EXPECT_EQ(ZPR_Stabilize(nullptr, 0.0, &frame.image, &frame.image, nullptr), kRefused);
    ASSERT_EQ(ZPR_Init(nullptr, &param, &handle), ZPR_OK);
    EXPECT_EQ(ZPR_SetSensorData(handle, nullptr), kRefused);
    EXPECT_EQ(ZPR_Stabilize(handle, 0.0, &frame.image, nullptr, nullptr), kRefused);
    EXPECT_EQ(ZPR_Deinit(&handle), ZPR_OK);
    EXPECT_EQ(handle, nullptr);
}

TEST(Lifecycle, AnArenaOfTheSizeToldIsEnough) {
    ZPR_Param param = makeParam(1920, 1080);
    param.delayFrames = 7;
    uint32_t size = 0;
    ASSERT_EQ(ZPR_GetMemorySize(&param, &size), ZPR_OK);
    std::vector<uint32_t> region(size / 4);
    ASSERT_EQ(ZPR_FormatArena(region.data(), size), ZPR_OK);
    const Instance instance(param, region.data());
}

TEST(Lifecycle, ImpossibleSizesAreOutOfMemory) {
    const std::function<void(ZPR_Param&)> kChanges[] = {
        [](ZPR_Param& p) { p.delayFrames = INT32_MAX; },
        [](ZPR_Param& p) { p.delayFrames = 200000, p.inputImage.pitch[0] = 1 << 20; },
        [](ZPR_Param& p) { p.inputImage.pitch[0] = -64; },
        [](ZPR_Param& p) { p.inputImage.pitch[0] = INT32_MAX, p.inputImage.height = 4; },
        [](ZPR_Param& p) { p.inputImage.pitch[0] = 1 << 26, p.inputImage.height = 128; },
        [](ZPR_Param& p) { p.outputImage.width = p.outputImage.height = 1 << 22; },
        [](ZPR_Param& p) { p.outputImage.width = p.outputImage.height = 0x7ffffffe; },
    };
    for (const auto& change : kChanges) {
        ZPR_Param param = makeParam(64, 64);
        change(param);
        ZPR_Handle handle = nullptr;
        EXPECT_EQ(ZPR_Init(nullptr, &param, &handle), ZPR_ERR_NO_MEMORY);
        EXPECT_EQ(handle, nullptr);
    }
}

TEST(DelayRing, HoldsFramesBackAndDrainsInOrder) {
    // Frames at times that no clock has come out, too, one for one.
    const double kOddTimes[] = {kNan, -1.0,  -kInfinity, 1.0,     kInfinity,
                                -0.0, 1e300, 1.1,        -1e-300, 0.9};
    const std::tuple<int, int, bool> kCases[] = {{0, 3, false}, {1, 1, false}, {1, 7, false},
                                                 {2, 2, false}, {5, 3, false}, {5, 12, false},
                                                 {0, 10, true}, {3, 10, true}};
    for (const auto& [delay, frames, isOdd] : kCases) {
        SCOPED_TRACE(testing::Message() << frames << " frames, delay " << delay);
        ZPR_Param param = makeParam(128, 64);
        param.delayFrames = delay;
        param.cropPercent = 100;
        Stabilizer instance(param);
        Frame output(128, 64);
        for (int round = 0; round < 2; ++round) {
            instance.add(sample(ZPR_SENSOR_GRAVITY_1, 0.9, 0, 0, 9.81));
            for (int i = 0; i < 200; ++i)
                instance.add(sample(ZPR_SENSOR_RATE_1, 0.9 + i * 0.005, 0, 0, 0));
            int next = 1;
            for (int i = 1; i <= frames; ++i) {
                const double time = isOdd ? kOddTimes[i - 1] : 1.0 + i / 30.0;
                const int code = instance.stabilize(time, i, output);
                ASSERT_EQ(code, i <= delay ? ZPR_FRAME_BUFFERED : ZPR_OK);
                if (code == ZPR_OK) {
                    ASSERT_EQ(valueOf(output), next++);
                }
            }
            for (; next <= frames; ++next) {
                ASSERT_EQ(instance.drain(output), ZPR_OK);
                ASSERT_EQ(valueOf(output), next);
            }
            ASSERT_EQ(instance.drain(output), kRefused);
            ZPR_Reset(instance);  // and all over again
        }
    }
}

TEST(InPlace, CopiesTheFrameAndDescribesTheOutput) {
    ZPR_Param param = makeParam(256, 100);
    param.outputImage = {ZPR_FORMAT_SEMIPLANAR_1, 128, 68, {}, {200, 140}};
    for (const int delay : {0, 1}) {
        SCOPED_TRACE(delay);
        param.delayFrames = delay;
        Stabilizer instance(param);
        std::vector<uint8_t> buffer(256 * 150 + 64, 55);
        ZPR_Image frame{};
        for (int i = 0; i <= delay; ++i) {
            frame = param.inputImage;
            frame.plane[0] = buffer.data();
            frame.plane[1] = buffer.data() + 256 * 100;
            ASSERT_EQ(instance.stabilize(1.0 + i, &frame, &frame),
                      i < delay ? ZPR_FRAME_BUFFERED : ZPR_OK);
            EXPECT_EQ(frame.width, i < delay ? 256 : 128);
        }
        EXPECT_EQ(frame.height, 68);
        EXPECT_EQ(frame.pitch[0] - frame.pitch[1], 60);
        EXPECT_EQ(frame.plane[0], buffer.data());
        EXPECT_EQ(frame.plane[1], buffer.data() + 200 * 96);
        EXPECT_EQ(buffer[200 * 30 + 60], 55);
    }
}

/// Arguments of a call.
struct Call {
    ZPR_Param param;
    ZPR_Image in, out;
};

TEST(Refusals, LeaveEverythingAsItWas) {
    const std::tuple<const char*, int, std::function<void(Call&)>> kCases[] = {
        {"format", 0, [](Call& c) { c.in.format = 0x800; }},
        {"output taller", 0, [](Call& c) { c.out.height = 130; }},
        {"output wider", 0, [](Call& c) { c.out.width = 258; }},
        {"input height", 0, [](Call& c) { c.in.height = 130; }},
        {"input width", 1, [](Call& c) { c.in.width = 258; }},
        {"input luma", 0, [](Call& c) { c.in.plane[0] = nullptr; }},
        {"input chroma", 1, [](Call& c) { c.in.plane[1] = nullptr; }},
        {"output luma", 0, [](Call& c) { c.out.plane[0] = nullptr; }},
        {"output chroma", 0, [](Call& c) { c.out.plane[1] = nullptr; }},
        {"output luma pitch", 0, [](Call& c) { c.out.pitch[0] = 255; }},
        {"output chroma pitch", 0, [](Call& c) { c.out.pitch[1] = -256; }},
        {"odd output height", 0, [](Call& c) { c.out.height = 127; }},
        {"input luma pitch", 0, [](Call& c) { c.in.pitch[0] = 254; }},
        {"input chroma pitch", 0, [](Call& c) { c.in.pitch[1] = 0; }},
        {"ring pitch", 1, [](Call& c) { c.param.inputImage.pitch[0] = 254; }},
    };
    for (const auto& [name, delay, change] : kCases) {
        SCOPED_TRACE(name);
        Frame input(256, 128), output(256, 128);
        output.fill(3);
        const std::vector<uint8_t> before = output.bytes;
        Call call{makeParam(256, 128), input.image, output.image};
        call.param.delayFrames = delay;
        change(call);
        Stabilizer instance(call.param);
        EXPECT_EQ(instance.stabilize(1.0, &call.in, &call.out), kRefused);
        EXPECT_EQ(output.bytes, before);
        EXPECT_EQ(instance.drain(output), kRefused) << "a frame was counted";
    }
}

TEST(Refusals, InPlaceAndDrainingCheckTheOutput) {
    ZPR_Param param = makeParam(256, 128);
    param.outputImage.pitch[1] = 254;
    Frame frame(256, 128);
    EXPECT_EQ(Stabilizer(param).stabilize(1.0, &frame.image, &frame.image), kRefused);
    param.delayFrames = 2;
    Stabilizer delayed(param);
    ZPR_Image nothing{};  // its planes are not needed while the ring fills
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(delayed.stabilize(1.0, &frame.image, &nothing), ZPR_FRAME_BUFFERED);
    }
    EXPECT_EQ(delayed.stabilize(1.0, &frame.image, &nothing), kRefused);
    EXPECT_EQ(delayed.stabilize(0.0, nullptr, &nothing), kRefused);
    for (const int code : {0, 0, kRefused}) EXPECT_EQ(delayed.drain(frame), code);
}

TEST(Stabilize, OutputWithoutPixelsIsLeftAlone) {
    const struct {
        const char* name;
        int32_t width, height;
    } kSizes[] = {
        {"no rows", 256, 0},
        {"negative height", 256, -2},
        {"lowest height", 256, INT32_MIN},
        {"near the lowest height", 256, INT32_MIN + 2},
        {"a block above the lowest height", 256, INT32_MIN + 126},
        {"no columns", 0, 256},
        {"negative width", -1, 256},
        {"lowest width", INT32_MIN, 256},
        {"nothing at all", INT32_MIN, INT32_MIN},
    };
    for (const int delay : {0, 1}) {
        ZPR_Param param = makeParam(256, 256);
        param.delayFrames = delay;
        for (const auto& size : kSizes) {
            SCOPED_TRACE(testing::Message() << size.name << ", delay " << delay);
            Stabilizer instance(param);
            Frame input(256, 256), output(256, 256);
            output.fill(3);
            const std::vector<uint8_t> before = output.bytes;
            output.image.width = size.width;
            output.image.height = size.height;
            for (int i = 0; i <= delay; ++i) {
                ASSERT_EQ(instance.stabilize(1.0 + i, &input.image, &output.image),
                          i < delay ? ZPR_FRAME_BUFFERED : ZPR_OK);
            }
            if (delay > 0) {
                EXPECT_EQ(instance.drain(output), ZPR_OK);
            }
            EXPECT_EQ(output.bytes, before);
            EXPECT_EQ(instance.drain(output), kRefused) << "the frame was not counted";
        }
    }
}

TEST(Stabilize, BadSamplesSpoilNoLaterFrameAndUpdatesCount) {
    ZPR_Param param = makeParam(256, 128);
    param.sensorMask = 21;
    const auto lastFrame = [&](bool withBadOnes, int level) {
        Stabilizer instance(param);
        Frame input(256, 128), output(256, 128);
        TestRandom random(62);
        input.fillRandom(random);
        param.smoothingLevel = level;
        for (int i = 0; i < 60; ++i) {
            const double t = 1.0 + i * 0.01;
            instance.add(sample(5, t, 0, std::sin(0.004 * i), 0, std::cos(0.004 * i)));
            if (withBadOnes && i == 10) {
                for (const double v : {kNan, kInfinity, 1e300, 0.0})
                    instance.add(sample(5, t, v, v, 0));
                instance.add(sample(5, kInfinity, 0, 0, 0, 1));
                instance.add(sample(3, t, 1e300, 1e300, 0));
                instance.add(sample(5, t, 0, std::sin(0.04), 0, std::cos(0.04)));
            }
            if (i % 3 != 2 || (i > 5 && i < 31)) continue;
            EXPECT_EQ(instance.stabilize(t - 0.035, &input.image, &output.image, &param), ZPR_OK);
        }
        return output.bytes;
    };
    const auto good = lastFrame(false, 10);
    EXPECT_EQ(lastFrame(true, 10), good);
    EXPECT_NE(lastFrame(false, 1), good);
}

}  // namespace
