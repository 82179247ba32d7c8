#include "support/test_support.h"

#include <cstring>
#include <limits>

using zpr_test::makeParam;

namespace {

TEST(Version, TellsTheRecord) {
    ZPR_Version v{};
    ZPR_GetVersion(nullptr);
    ZPR_GetVersion(&v);
    EXPECT_EQ((std::vector<int>{v.major, v.minor, v.build, v.revision}),
              (std::vector<int>{3, 0, 12021, 9425}));
    EXPECT_STREQ(v.text, "Quillon_Framehold_S_3.0.12021.9425");
    EXPECT_STREQ(v.buildDate, "06/02/2017");
    EXPECT_NE(v.notice, nullptr);
}

TEST(DefaultParam, WritesItsFieldsAndNothingElse) {
    EXPECT_EQ(ZPR_GetDefaultParam(nullptr), ZPR_ERR_INVALID_PARAM);
    ZPR_Param param, expected;
    std::memset(&param, 0xA5, sizeof param);
    expected = param;
    expected.sensorMask = expected.delayFrames = 0;
    expected.fieldOfView = 65.4002;
    expected.fieldOfViewMode = 1;
    expected.readoutTime = 0.0299;
    expected.timeOffset = -0.0411;
    expected.cropPercent = 80;
    expected.smoothingLevel = 9;
    EXPECT_EQ(ZPR_GetDefaultParam(&param), ZPR_OK);
    EXPECT_EQ(std::memcmp(&param, &expected, sizeof param), 0);
}

TEST(ParamCheck, AcceptsAndRefuses) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    using P = ZPR_Param;
    const std::tuple<int32_t P::*, int32_t, bool> kNumbers[] = {
        {&P::sensorMask, 0, false},     {&P::sensorMask, 63, true},
        {&P::sensorMask, 64, false},    {&P::cropPercent, 0, false},
        {&P::cropPercent, 1, true},     {&P::cropPercent, 100, true},
        {&P::cropPercent, 101, false},  {&P::cropPercent, INT32_MIN, false},
        {&P::delayFrames, -1, false},   {&P::smoothingLevel, 0, false},
        {&P::smoothingLevel, 10, true}, {&P::smoothingLevel, 11, false}};
    const std::tuple<double, int, double, bool> kViews[] = {
        {180.0, 1, 0.0, true},    {180.5, 1, 0.0, false},  {200.0, 4, 0.0, true},
        {HUGE_VAL, 4, 0.0, true}, {60.0, 0, 0.0, false},   {60.0, 5, 0.0, false},
        {0.0, 4, 0.0, false},     {-1.0, 4, 0.0, false},   {nan, 4, 0.0, false},
        {60.0, 3, nan, false},    {60.0, 3, -1e-9, false}, {60.0, 2, HUGE_VAL, true}};
    const std::tuple<uint32_t, int, int, bool> kImages[] = {
        {0x801, 2, 2, true},   {0x802, 8, 8, true},      {0x800, 8, 8, false},
        {0x803, 8, 8, false},  {0x801, 641, 480, false}, {0x801, 640, 0, false},
        {0x801, -2, 8, false}, {0x801, 8, 479, false}};
    const auto check = [](const ZPR_Param& param, bool good) {
        uint32_t size = 77;
        EXPECT_EQ(ZPR_GetMemorySize(&param, &size), good ? ZPR_OK : ZPR_ERR_INVALID_PARAM);
        if (good) return;
        EXPECT_EQ(size, 77u);
        ZPR_Handle handle = reinterpret_cast<ZPR_Handle>(&size);
        EXPECT_EQ(ZPR_Init(nullptr, &param, &handle), ZPR_ERR_INVALID_PARAM);
        EXPECT_EQ(handle, reinterpret_cast<ZPR_Handle>(&size));
    };
    for (const auto& [field, value, good] : kNumbers) {
        SCOPED_TRACE(value);
        ZPR_Param param = makeParam(640, 480);
        param.*field = value;
        check(param, good);
    }
    for (const auto& [view, mode, readout, good] : kViews) {
        SCOPED_TRACE(testing::Message()
                     << "view " << view << " mode " << mode << " readout " << readout);
        ZPR_Param param = makeParam(640, 480);
        param.fieldOfView = view;
        param.fieldOfViewMode = mode;
        param.readoutTime = readout;
        check(param, good);
    }
    for (const auto& [format, width, height, good] : kImages) {
        SCOPED_TRACE(testing::Message() << format << ' ' << width << 'x' << height);
        ZPR_Param param = makeParam(640, 480), other = param;
        param.inputImage = other.outputImage = {format, width, height, {}, {640}};
        check(param, good);
        check(other, good);
    }
}

TEST(MemorySize, FollowsTheFormula) {
    constexpr uint32_t kHeadroom = 20971520;
    // Width, height and pitch of the input, delay, width and height of the output, bytes.
    const std::tuple<int, int, int, int, int, int, uint32_t> kCases[] = {
        {1920, 1080, 1920, 0, 1920, 1080, kHeadroom + 11088},
        {1280, 720, 1280, 0, 1280, 720, kHeadroom + 4992},
        {640, 480, 640, 1, 128, 128, kHeadroom + 112 + 56 + 460800},
        {2, 2, 1, 3, 2, 2, kHeadroom + 112 + 168 + 9},
        // 1920 x 1080 x 2000 wraps to -147767296, so the ring term is negative.
        {1920, 1080, 1920, 2000, 128, 128,
         kHeadroom + 112 + static_cast<uint32_t>(112000 - 221650944)},
        {2, 2, 0, INT32_MAX, 2, 2, UINT32_MAX},  // more than 32 bits can say
    };
    for (const auto& [width, height, pitch, delay, outWidth, outHeight, expected] : kCases) {
        SCOPED_TRACE(testing::Message() << width << 'x' << height << " delay " << delay);
        ZPR_Param param = makeParam(width, height);
        param.inputImage.pitch[0] = pitch;
        param.delayFrames = delay;
        param.outputImage.width = outWidth;
        param.outputImage.height = outHeight;
        uint32_t size = 0;
        ASSERT_EQ(ZPR_GetMemorySize(&param, &size), ZPR_OK);
        EXPECT_EQ(size, expected);
    }
    uint32_t size = 0;
    const ZPR_Param param = makeParam(64, 64);
    EXPECT_EQ(ZPR_GetMemorySize(nullptr, &size), ZPR_ERR_INVALID_PARAM);
    EXPECT_EQ(ZPR_GetMemorySize(&param, nullptr), ZPR_ERR_INVALID_PARAM);
}

}  // namespace
