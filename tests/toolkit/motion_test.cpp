// What a motion log and a clip.json say: axes, scales, times and errors.
#include "common/text_fields.h"
#include "motion/clip_metadata.h"
#include "motion/motion_log_reader.h"
#include "support/temporary_folder.h"
#include "support/test_support.h"

#include <algorithm>

#include <fmt/format.h>

using namespace framehold;
using zpr_test::errorOf;
using zpr_test::TemporaryFolder;

namespace {

TEST(AxisMapping, MapsAndRefuses) {
    const std::pair<const char*, Vec3> kCases[] = {
        {"XYZ", {1, 2, 3}}, {"xyz", {-1, -2, -3}}, {"YxZ", {2, -1, 3}}, {"zXy", {-3, 1, -2}}};
    for (const auto& [letters, device] : kCases) {
        const AxisMapping mapping = AxisMapping::fromLetters(letters);
        EXPECT_EQ(mapping.toDevice({1, 2, 3}), device) << letters;
        EXPECT_EQ(mapping.letters(), letters);
    }
    EXPECT_EQ(AxisMapping::fromTerms({"-y", "+x", "-z"}).letters(), "yXz");
    for (const char* bad : {"", "XY", "XYZZ", "XXY", "ABC"})
        EXPECT_THROW(AxisMapping::fromLetters(bad), std::invalid_argument) << bad;
    EXPECT_THROW(AxisMapping::fromTerms({"x", "+y", "+z"}), std::invalid_argument);
}

const std::string kHead = "CAMERA IMU LOG\nversion,1.3\norientation,YxZ\n";
const std::string kScales = "tscale,0.001\ngscale,0.5\nascale,2\nframe_readout_time,20\n";

TEST(Gcsv, ReadsScalesAndOrder) {
    const TemporaryFolder folder;
    const MotionLog log = readMotionLog(folder.write(
        "a.gcsv", kHead + kScales +
                      "t,gx,gy,gz,ax,ay,az\r\n\n2000,2,4,6,0.5,0,0\n 1000 , 1,1,1, 0,0,0.25\n"));
    ASSERT_EQ(log.rates.size(), 2u);
    EXPECT_EQ(log.outOfOrder.rates, 1u);
    EXPECT_EQ(log.rates[0].time, 1.0);
    EXPECT_EQ(log.rates[1].value, (Vec3{1, 2, 3}));
    EXPECT_NEAR(log.gravity[0].value[2], 0.5 * 9.81, 1e-12);
    EXPECT_EQ(log.orientation.letters(), "YxZ");
    EXPECT_EQ(log.readoutTime, 0.02);
}

TEST(Gcsv, ErrorsNameLineAndField) {
    const std::string columns = "t,gx,gy,gz\n";
    const std::pair<std::string, const char*> kCases[] = {
        {"", "is empty"},
        {"hello\n", ":1: not a motion log of a format that is known: the first line is \"hello\""},
        {kHead, ":3: ends before the line of column names"},
        {kHead + columns, ":4: holds no samples"},
        {kHead + "t,gx,gz\n", ":4: column 3 is not gy"},
        {kHead + "tscale,0\n" + columns, ":4: tscale: 0 is not above 0"},
        {kHead + "gscale,abc\n" + columns, ":4: gscale: 'abc' is not a finite number"},
        {kHead + "orientation,XX\n", ":4: orientation: 'XX' is not an orientation"},
        {kHead + "frame_readout_time,-1\n", ":4: frame_readout_time: -1 is below 0"},
        {kHead + columns + "1,2,3\n", ":5: 3 fields where 4 are expected"},
        {kHead + columns + "1,2,3,4\n1,2,x,4\n", ":6: gy: 'x' is not a finite number"},
        {kHead + columns + "nan,2,3,4\n", ":5: t: 'nan' is not a finite number"},
    };
    const TemporaryFolder folder;
    for (const auto& [text, message] : kCases) {
        const std::string path = folder.write("bad.gcsv", text);
        const std::string error = errorOf([&] { readMotionLog(path); });
        EXPECT_NE(error.find(message), std::string::npos) << error;
        EXPECT_EQ(error.rfind(path, 0), 0u) << error;
    }
}

TEST(MotionLog, ThinningLosesNoRotation) {
    zpr_test::TestRandom random(71);
    std::vector<MotionSample> samples;
    double time = 5.0, turned = 0.0;
    for (int i = 0; i < 1000; ++i) {
        const double seconds = random.uniform(0.0005, 0.0015);
        time += seconds;
        const double rate = random.uniform(-2.0, 3.0);
        samples.push_back({time, {rate, 0.0, 0.0}});
        if (i > 0) turned += rate * seconds;
    }
    EXPECT_EQ(thinned(samples, 2000.0).size(), samples.size());
    for (const double rate : {900.0, 400.0, 99.0}) {
        const auto few = thinned(samples, rate);
        EXPECT_LE(samplesPerSecond(few), rate);
        EXPECT_GT(samplesPerSecond(few), rate / 2.1);
        double sum = 0.0;
        for (size_t i = 1; i < few.size(); ++i)
            sum += few[i].value[0] * (few[i].time - few[i - 1].time);
        EXPECT_NEAR(sum, turned, 1e-9);
    }
}

TEST(ClipMetadata, ReadsAndNamesWhatIsWrong) {
    const TemporaryFolder folder;
    folder.write("frames.csv", "frame,timestamp_s\n0,0.5\n1,0.6\n");
    const ClipMetadata metadata = readClipMetadata(folder.write("clip.json", R"({
        "width": 800, "focal_px": 557.0, "readout_s": 0.03, "time_offset_s": -0.003,
        "axes": {"device_x": "+y", "device_y": "-x", "device_z": "+z"},
        "gravity_hint_mps2": [9.81, 0, 0], "imu": {"file": "imu.gcsv", "accel_hz": null}})"));
    EXPECT_EQ(metadata.width, 800);
    EXPECT_EQ(metadata.focalLength, 557.0);
    EXPECT_EQ(metadata.timeOffset, -0.003);
    EXPECT_EQ(metadata.axes->letters(), "YxZ");
    EXPECT_EQ(metadata.gravityHint, (Vec3{9.81, 0, 0}));
    EXPECT_NE(metadata.motionLog->find("/imu.gcsv"), std::string::npos);
    EXPECT_EQ(metadata.frameTimes, (std::vector<double>{0.5, 0.6}));

    const std::pair<const char*, const char*> kCases[] = {
        {"{", "not JSON"},
        {"[]", "not a JSON object"},
        {R"({"focal_px": "x"})", "focal_px: "},
        {R"({"focal_px": 0})", "focal_px: 0 is not at least 1"},
        {R"({"readout_s": -1})", "readout_s: -1 is not at least 0"},
        {R"({"axes": {"device_x": "+x"}})", "axes: "},
        {R"({"gravity_hint_mps2": [1]})", "gravity_hint_mps2: "},
    };
    for (const auto& [text, message] : kCases) {
        const std::string path = folder.write("bad.json", text);
        const std::string error = errorOf([&] { readClipMetadata(path); });
        EXPECT_EQ(error.find(path + ": " + message), 0u) << error;
    }
    folder.write("frames.csv", "frame,timestamp_s\n0,0.5\n2,0.6\n");
    const std::string error = errorOf([&] { readClipMetadata(folder.write("clip.json", "{}")); });
    EXPECT_NE(error.find("frames.csv:3: frame: 2"), std::string::npos) << error;
}

}  // namespace
