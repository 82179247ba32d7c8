// What a motion log and a clip.json say: axes, scales, times and errors.
#include "common/text_fields.h"
#include "motion/clip_metadata.h"
#include "motion/motion_log_reader.h"
#include "support/temporary_folder.h"
#include "support/test_support.h"

#include <algorithm>

#include <fmt/format.h>
#include <sys/stat.h>

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
        {kHead + "note," + std::string(65537, 'x') + "\n" + columns,
         ":4: is longer than 65536 bytes"},
        {kHead + columns + "1,2,3," + std::string(99, 'x') + "\n",
         ":5: gz: 'xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx...' is not a finite number"},
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

TEST(Text, IsEscapedAndCutForMessages) {
    const std::pair<const char*, const char*> kCases[] = {
        {"Zoë's 走.mp4", "Zoë's 走.mp4"},
        {"a\x1b[2J\r\n\x7f", "a\\x1B[2J\\x0D\\x0A\\x7F"},
        {"\xff\xc3", "\\xFF\\xC3"},
        {"\xc0\xaf \xed\xa0\x80 \xf4\x90\x80\x80",
         "\\xC0\\xAF \\xED\\xA0\\x80 \\xF4\\x90\\x80\\x80"},
        {"\xc2\x9b|\xe2\x80\xae|\xe2\x80\xa8|\xe2\x81\xa6",
         "\\xC2\\x9B|\\xE2\\x80\\xAE|\\xE2\\x80\\xA8|\\xE2\\x81\\xA6"}};
    for (const auto& [text, shown] : kCases) EXPECT_EQ(escaped(text), shown);
    EXPECT_EQ(excerpt(std::string(40, 'x')), std::string(40, 'x'));
    EXPECT_EQ(excerpt(std::string(41, 'x')), std::string(40, 'x') + "...");
    EXPECT_EQ(excerpt(std::string(39, 'x') + "走"), std::string(39, 'x') + "...");
}

TEST(ReadFile, TakesRegularFilesOnly) {
    const TemporaryFolder folder;
    const std::string pipe = folder.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {pipe, std::string("/dev/zero"), folder.path("")}) {
        EXPECT_EQ(errorOf([&] { readFile(path); }), path + ": is not a regular file");
    }
    EXPECT_EQ(errorOf([] { readFile("no\nfile"); }),
              "no\\x0Afile: cannot be read: No such file or directory");
    EXPECT_EQ(readFile(folder.write("file", "abcdef"), 3), "abc");
}

TEST(ClipMetadata, NamesFilesBelowItsFolderOnly) {
    const TemporaryFolder folder;
    std::filesystem::create_directories(folder.path("clip/logs"));
    folder.write("outside.gcsv", "");
    std::filesystem::create_symlink("../outside.gcsv", folder.path("clip/link.gcsv"));
    std::filesystem::create_symlink("logs", folder.path("clip/inner"));
    const auto errorFor = [&](const std::string& file, NamedPaths paths) {
        const std::string text = R"({"imu": {"file": ")" + file + R"("}})";
        return errorOf([&] { readClipMetadata(folder.write("clip/clip.json", text), paths); });
    };
    for (const char* file : {"a.gcsv", "logs/a.gcsv", "./logs/../a.gcsv", "inner/a.gcsv"}) {
        EXPECT_EQ(errorFor(file, NamedPaths::kBelow), "none") << file;
    }
    const std::string absolute = folder.path("clip/a.gcsv");
    for (const std::string& file :
         {std::string("../outside.gcsv"), std::string("logs/../../outside.gcsv"),
          std::string("link.gcsv"), std::string("/etc/passwd"), absolute}) {
        EXPECT_NE(errorFor(file, NamedPaths::kBelow).find("--allow-outside-paths"),
                  std::string::npos)
            << file;
        EXPECT_EQ(errorFor(file, NamedPaths::kAnywhere), "none") << file;
    }
    EXPECT_NE(errorOf([&] {
                  readClipMetadata(
                      folder.write("clip/clip.json", R"({"frames_file": "../outside.gcsv"})"));
              }).find("frames_file: ../outside.gcsv is not below"),
              std::string::npos);
}

TEST(ClipMetadata, UnknownKeysAreNamed) {
    const TemporaryFolder folder;
    const auto warnings = readClipMetadata(folder.write("clip.json", R"({"focal": 1, "licence": "",
        "a\u001bb": 1, "c": 1, "d": 1, "e": 1, "f": 1, "g": 1, "some_note": 1})"))
                              .warnings;
    ASSERT_EQ(warnings.size(), 2u);
    EXPECT_NE(warnings[0].find("focal is not a known key; did you mean focal_px?"),
              std::string::npos);
    EXPECT_NE(warnings[1].find("not used: a\\x1Bb, c, d, e, f and 2 more"), std::string::npos)
        << warnings[1];
}

TEST(ClipMetadata, LensShiftsAreReadFromTheTableThatItNames) {
    const TemporaryFolder folder;
    const auto metadata =
        readClipMetadata(folder.write("clip.json", R"({"lens_shifts_file": "shifts.csv"})"));
    const std::string path = folder.path("shifts.csv");
    ASSERT_EQ(metadata.lensShifts, path);
    const std::pair<const char*, const char*> kCases[] = {
        {"time_s,x_px,y_px\n0.5,1,-2\n0.6,3,-4\n", "none"},
        {"time,x,y\n0.5,1,-2\n", ":1: the first line is not time_s,x_px,y_px"},
        {"time_s,x_px,y_px\n0.5,1\n", ":2: 2 fields where 3 are expected"},
        {"time_s,x_px,y_px\nx,1,2\n", ":2: time_s: 'x' is not a finite number"},
        {"time_s,x_px,y_px\n0.5,inf,2\n", ":2: x_px: 'inf' is not a finite number"},
        {"time_s,x_px,y_px\n0.5,1,2\n0.6,1,\n", ":3: y_px: '' is not a finite number"},
        {"time_s,x_px,y_px\n0.5,1,2\n0.5,1,2\n",
         ":3: time_s: 0.5 is not above that of the row before"},
    };
    for (const auto& [text, error] : kCases) {
        SCOPED_TRACE(text);
        folder.write("shifts.csv", text);
        const bool isGood = std::string(error) == "none";
        EXPECT_EQ(errorOf([&] { readLensShifts(path); }), isGood ? error : path + error);
        if (!isGood) continue;
        const std::vector<LensShift> shifts = readLensShifts(path);
        ASSERT_EQ(shifts.size(), 2u);
        EXPECT_EQ(shifts[1].time, 0.6);
        EXPECT_EQ(shifts[1].x, 3.0);
        EXPECT_EQ(shifts[1].y, -4.0);
    }
}

TEST(ClipMetadata, ReadsAndNamesWhatIsWrong) {
    const TemporaryFolder folder;
    folder.write("frames.csv", "frame,timestamp_s\n0,0.5\n1,0.6\n");
    const ClipMetadata metadata = readClipMetadata(folder.write("clip.json", R"({
        "width": 800, "focal_px": 557.0, "lens": {"model": "fisheye", "k1": -0.03, "k4": 0.001}, "readout_s": 0.03, "time_offset_s": -0.003,
        "axes": {"device_x": "+y", "device_y": "-x", "device_z": "+z"},
        "gravity_hint_mps2": [9.81, 0, 0], "imu": {"file": "imu.gcsv", "accel_hz": null}})"));
    EXPECT_EQ(metadata.width, 800);
    EXPECT_EQ(metadata.focalLength, 557.0);
    EXPECT_EQ(metadata.timeOffset, -0.003);
    EXPECT_TRUE(metadata.lens == LensDistortion(LensModel::kFisheye, {-0.03, 0.0, 0.0, 0.001}));
    EXPECT_EQ(metadata.axes->letters(), "YxZ");
    EXPECT_EQ(metadata.gravityHint, (Vec3{9.81, 0, 0}));
    EXPECT_NE(metadata.motionLog->find("/imu.gcsv"), std::string::npos);
    EXPECT_EQ(metadata.frameTimes, (std::vector<double>{0.5, 0.6}));

    const std::pair<const char*, const char*> kCases[] = {
        {"{\n\"width\": \x1b[2J}", "not JSON: a mistake in line 2, or before it"},
        {R"({"focal_px": 1e999})", "not JSON: it holds a number that is too large"},
        {"[]", "not a JSON object"},
        {R"({"focal_px": "x"})", "focal_px: is not a number"},
        {R"({"imu": {"file": 1}})", "imu: is not a text in quotes"},
        {R"({"imu": []})", "imu: is not an object"},
        {R"({"lens_shifts_file": 1})", "lens_shifts_file: is not a text in quotes"},
        {R"({"axes": {"device_x": "01234567890123456789012345678901234567890123456789",
              "device_y": "+x", "device_z": "+z"}})",
         "axes: '0123456789012345678901234567890123456789...' is not an axis"},
        {R"({"focal_px": 0})", "focal_px: 0 is not at least 1"},
        {R"({"lens": {"k1": 0.1}})", "lens: model is missing"},
        {R"({"lens": {"model": "fish"}})",
         "lens: model: 'fish' is not none, polynomial or fisheye"},
        {R"({"lens": {"model": "fisheye", "k2": "x"}})", "lens: k2 is not a number"},
        {R"({"lens": {"model": "fisheye", "k2": 2e3}})", "lens: k2: 2000 is not -1000 to 1000"},
        {R"({"lens": {"model": "polynomial", "p1": 0}})",
         "lens: 'p1' is not model, k1, k2, k3 or k4"},
        {R"({"readout_s": -1})", "readout_s: -1 is not at least 0"},
        {R"({"axes": {"device_x": "+x"}})", "axes: device_y is missing"},
        {R"({"gravity_hint_mps2": [1]})", "gravity_hint_mps2: is not a list of three numbers"},
    };
    for (const auto& [text, message] : kCases) {
        const std::string path = folder.write("bad.json", text);
        const std::string error = errorOf([&] { readClipMetadata(path); });
        EXPECT_EQ(error.find(path + ": " + message), 0u) << error;
    }
    const std::string large = folder.write("bad.json", std::string((1 << 20) + 1, '['));
    EXPECT_EQ(errorOf([&] { readClipMetadata(large); }), large + ": is larger than 1048576 bytes");
    folder.write("frames.csv", "frame,timestamp_s\n0,0.5\n2,0.6\n");
    const std::string error = errorOf([&] { readClipMetadata(folder.write("clip.json", "{}")); });
    EXPECT_NE(error.find("frames.csv:3: frame: 2"), std::string::npos) << error;
}

}  // namespace
