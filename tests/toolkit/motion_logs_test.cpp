// Every format of motion log, read from a small sample and from broken ones.
#include "common/library_constants.h"
#include "common/text_fields.h"
#include "media/metadata_types.h"
#include "motion/formats/telemetry_formats.h"
#include "motion/formats/text_times.h"
#include "motion/motion_log_reader.h"
#include "support/archives.h"
#include "support/temporary_folder.h"
#include "toolkit/telemetry_builder.h"

#include <cmath>

#include <gtest/gtest.h>

using namespace framehold;
using namespace zpr_test;

namespace {

const std::string kData = FRAMEHOLD_TEST_DATA "/motion/";

void expectNear(const Vec3& got, const Vec3& expected, double tolerance, const char* what) {
    for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(got[i], expected[i], tolerance) << what << " " << i;
}

// All samples hold the same made-up motion in their own units, axes and times.
const Vec3 kFirstRate = {0.1, -0.2, 0.05};
const Vec3 kLastRate = {0.19, -0.02, 0.005};
const Vec3 kFirstGravity = {0.4, 9.78, 0.3};
const Vec3 kLastGravity = {0.58, 9.69, 0.75};
constexpr double kNone = -1.0;

struct VectorSample {
    const char* file;
    const char* format;
    double first;           // seconds, of the first rate
    double step;            // seconds from rate to rate
    double firstGravity;    // seconds; kNone: no gravity
    const char* sibling;    // file that is to be found; "": none
    const char* note = "";  // part of one that is to be there; "": any may be
};

constexpr VectorSample kVectorSamples[] = {
    {"camera-1.0.gcsv", "gcsv 1.0", 0.1, 0.005, kNone, ""},
    {"camera-1.3.gcsv", "gcsv 1.3", 0.0, 0.0025, 0.0, ""},
    {"android/Gyroscope.csv", "sensor CSV", 0.1, 0.005, 0.101, "TotalAcceleration.csv"},
    {"android/TotalAcceleration.csv", "sensor CSV", 0.1, 0.005, 0.101, "Gyroscope.csv"},
    {"android/wide-table.csv", "sensor CSV", 0.02, 0.005, 0.02, ""},
    {"android/degrees.csv", "sensor CSV", 0.05, 0.0025, 0.05, ""},
    {"iphone/motion.csv", "sensor CSV", 500.0, 0.01, 500.001, ""},
    {"iphone/Gyroscope.csv", "sensor CSV", 0.01, 0.01, 0.01, "Accelerometer.csv"},
    {"three-files/walk_gyro.csv", "x,y,z,timestamp_ns", 81234.5, 0.0025, 81234.5, "walk_accel.csv"},
    {"euroc/data.csv", "EuRoC", 1500000000.1, 0.005, 1500000000.1, ""},
    {"iphone/rotation-rate.csv", "sensor CSV", 0.1, 0.005, 0.1, ""},
    {"android/alpha.csv", "sensor CSV", 0.1, 0.005, 0.1, ""},
    {"android/one-sensor-a-row.csv", "one sensor a row", 0.1, 0.005, 0.1, ""},
    {"times/date-and-ms.csv", "sensor CSV", 1699999999.98, 0.005, 1699999999.98, ""},
    {"times/iso-8601.csv", "sensor CSV", 1700000000.1, 0.005, 1700000000.1, ""},
    {"timed-metadata.mp4", "mett", 0.1, 0.005, 0.1, ""},
    {"times/no-names.csv", "rows without names", 0.1, 0.005, 0.1, "",
     "2 to 4 are taken for the gyroscope, 5 to 7 for the accelerometer, by size"},
    {"flight/log.csv", "flight-controller log", 0.1, 0.005, 0.1, ""},
    {"flight/loops.csv", "flight-controller log", 0.0, 0.005, 0.0, ""},
    {"rows/decimal-commas.csv", "sensor CSV", 0.1, 0.005, 0.1, ""},
    {"rows/cut-off.csv", "sensor CSV", 0.1, 0.005, 0.1, "", "cut off in its last line, 12, which"},
    {"rows/nan.csv", "sensor CSV", 0.1, 0.005, 0.1, "",
     "2 readings with a value that is not a number (NaN), in line 5 first, left out"},
    {"sessions/whole.pb3", "protobuf session", 0.1, 0.005, 0.1, "",
     "the phone's estimates of drift and bias are taken from the readings"},
    {"sessions/stream.pb3", "protobuf session", 0.1, 0.005, 0.1, ""},
    {"rows/utf-16.csv", "sensor CSV", 0.1, 0.005, 0.1, ""},
    {"rows/polled.csv", "sensor CSV", 0.1, 0.005, 0.1, "",
     "the gyroscope was read more often than it measures: each value is there 2 times, repeats "
     "are left out, 200 a second are left"},
};

TEST(MotionLogs, SamplesOfEveryTextFormat) {
    for (const VectorSample& sample : kVectorSamples) {
        SCOPED_TRACE(sample.file);
        const MotionLog log = readMotionLog(kData + sample.file);
        EXPECT_EQ(log.format, sample.format);
        ASSERT_EQ(log.rates.size(), 10u);
        // Nanoseconds since 1970 are good to a quarter of a microsecond in seconds.
        EXPECT_NEAR(log.rates[0].time, sample.first, 1e-6);
        EXPECT_NEAR(log.rates[9].time, sample.first + 9.0 * sample.step, 1e-6);
        expectNear(log.rates[0].value, kFirstRate, 1e-6, "rate");
        expectNear(log.rates[9].value, kLastRate, 1e-6, "last rate");
        ASSERT_EQ(log.gravity.size(), sample.firstGravity == kNone ? 0u : 10u);
        if (!log.gravity.empty()) {
            EXPECT_NEAR(log.gravity[0].time, sample.firstGravity, 1e-6);
            expectNear(log.gravity[0].value, kFirstGravity, 1e-3, "gravity");
            expectNear(log.gravity[9].value, kLastGravity, 1e-3, "last gravity");
        }
        EXPECT_TRUE(std::any_of(log.notes.begin(), log.notes.end(),
                                [&](const std::string& note) {
                                    return note.find(sample.note) != std::string::npos;
                                }) ||
                    sample.note[0] == '\0')
            << sample.note;
        const bool hasSibling = sample.sibling[0] != '\0';
        ASSERT_EQ(log.files.size(), hasSibling ? 2u : 1u);
        if (hasSibling) {
            EXPECT_EQ(std::filesystem::path(log.files[1]).filename(), sample.sibling);
        }
    }
}

TEST(MotionLogs, DatesWithTimes) {
    const std::tuple<const char*, double> kCases[] = {
        {"1970-01-01T00:00:00", 0.0},        {"2024-02-29 12:00:00.25Z", 1709208000.25},
        {"2023/11/14 22:13:20", 1.7e9},      {"2023-11-14T20:13:20-0200", 1.7e9},
        {"22:13:20:125", 80000.125},         {"22:13:20,5", 80000.5},
        {"2023-11-14T23:43:20+01:30", 1.7e9}};
    for (const auto& [text, seconds] : kCases) {
        ASSERT_TRUE(secondsOfDate(text)) << text;
        EXPECT_NEAR(*secondsOfDate(text), seconds, 1e-6) << text;
    }
    for (const char* text : {"", "2023-11-14", "2023-13-14T00:00:00", "24:00:00", "1:02:03",
                             "22:13:20x", "22:13", "2023-11-14T", "20231114T221320", "-1:00:00"}) {
        EXPECT_FALSE(secondsOfDate(text)) << text;
    }
}

TEST(MotionLogs, OnlyRegularRepeatsAreLeftOut) {
    // Lengths of runs of equal values, over and over.
    const std::pair<std::vector<int>, bool> kCases[] = {{{1}, false},
                                                        {{2}, true},
                                                        {{1, 2, 1, 2, 2}, true},
                                                        {{3, 2, 4, 3}, true},
                                                        {{1, 1, 1, 1, 2}, false},
                                                        {{1, 1, 1, 1, 10}, false},
                                                        {{30}, false}};
    for (const auto& [runs, isPolled] : kCases) {
        std::vector<MotionSample> samples;
        for (int value = 0; value < 100; ++value) {
            for (int i = 0; i < runs[static_cast<size_t>(value) % runs.size()]; ++i) {
                samples.push_back(
                    {0.01 * static_cast<double>(samples.size()), {1.0, 2.0, 1.0 * value}});
            }
        }
        const size_t before = samples.size();
        EXPECT_EQ(dropRepeats(samples).has_value(), isPolled) << runs[0];
        EXPECT_EQ(samples.size(), isPolled ? 100u : before) << runs[0];
    }
    std::vector<MotionSample> still(1000, {0.0, {0.0, 0.0, 0.0}});
    EXPECT_FALSE(dropRepeats(still));
}

TEST(MotionLogs, OrientationsInAnyColumnOrder) {
    const std::tuple<const char*, double, double> kCases[] = {
        {"rotation/game.csv", 0.1, 0.02},
        {"rotation/short.csv", 1.0, 0.02},
        {"rotation/Orientation.csv", 0, 0.02}};
    for (const auto& [file, first, step] : kCases) {
        SCOPED_TRACE(file);
        MotionLog log = readMotionLog(kData + file);
        EXPECT_EQ(log.format, "rotation vector");
        ASSERT_EQ(log.orientations.size(), 10u);
        for (size_t i = 0; i < 10; ++i) {
            const OrientationSample& q = log.orientations[i];
            const double half = 0.1 + 0.01 * static_cast<double>(i);
            EXPECT_NEAR(q.time, first + step * static_cast<double>(i), 1e-6);
            EXPECT_NEAR(q.x, 0.6 * std::sin(half), 1e-6);
            EXPECT_NEAR(q.y, 0.0, 1e-6);
            EXPECT_NEAR(q.z, 0.8 * std::sin(half), 1e-6);
            EXPECT_NEAR(q.w, std::cos(half), 1e-6);
        }
        // Device x is logged y, device y minus logged x: the device is turned by a quarter about z
        // before the logged rotation.
        const OrientationSample q = log.orientations[0];
        log.toDeviceAxes(AxisMapping::fromLetters("YxZ"));
        const OrientationSample& turned = log.orientations[0];
        const double c = std::sqrt(0.5);
        EXPECT_NEAR(turned.w, c * (q.w - q.z), 1e-12);
        EXPECT_NEAR(turned.x, c * (q.x + q.y), 1e-12);
        EXPECT_NEAR(turned.z, c * (q.z + q.w), 1e-12);
        EXPECT_THROW(log.toDeviceAxes(AxisMapping::fromLetters("XYz")), std::invalid_argument);
    }
}

TEST(MotionLogs, HeaderFieldsOfGcsv) {
    const MotionLog log = readMotionLog(kData + "camera-1.3.gcsv");
    EXPECT_EQ(log.orientation.letters(), "xzY");
    EXPECT_EQ(log.readoutTime, 0.01523);
    EXPECT_EQ(log.headers.size(), 16u);
    EXPECT_EQ(log.headers[3],
              (std::pair<std::string, std::string>("note", "made up, with a comma")));
    EXPECT_TRUE(log.notes.empty());
    const MotionLog odd = parseTextLog(
        "odd.gcsv",
        "CAMERA IMU LOG\nversion,1.4\ntscal,1\nframe_readout_direction,2\nt,gx,gy,gz\n0,1,2,3\n");
    EXPECT_EQ(odd.notes.size(), 3u);

    // What means nothing is counted; of what is said twice the last counts.
    std::string many = "CAMERA IMU LOG\n";
    for (int i = 0; i < 1000; ++i) many += "key" + std::to_string(i) + ",1\nid,camera\n";
    const MotionLog hostile = parseTextLog("log", many +
                                                      "version,1.4\nversion,1.2\nt,gx,gy,gz\n"
                                                      "0,1,2,3\n");
    EXPECT_EQ(hostile.headers.size(), 2u);
    EXPECT_EQ(hostile.format, "gcsv 1.2");
    EXPECT_EQ(hostile.notes, std::vector<std::string>{
                                 "1000 header keys are not known and not used, 'key0' first"});
}

TEST(MotionLogs, FewFilesAreReadBesideALog) {
    const std::string table = "seconds_elapsed,x,y,z\n0,0,0,9.81\n1,0,0,9.81\n";
    const auto noteOf = [&](int others, size_t bytes) {
        const TemporaryFolder folder;
        for (int i = 0; i < others; ++i) {
            folder.write("other" + std::to_string(i) + ".csv", std::string(bytes, '?'));
        }
        folder.write("z.csv", table);
        const MotionLog log =
            readMotionLog(folder.write("gyro.csv", "seconds_elapsed,gx,gy,gz\n0,1,2,3\n1,1,2,3\n"));
        EXPECT_EQ(log.gravity.empty(), !log.notes.empty() && log.files.size() == 1);
        return log.files.size() == 2 ? "found" : log.notes.empty() ? "" : log.notes.back();
    };
    EXPECT_EQ(noteOf(10, 10), "found");
    EXPECT_EQ(noteOf(100, 10).substr(0, 37), "85 files beside it were not looked at");
    EXPECT_EQ(noteOf(1, 3 << 20).substr(0, 36), "1 files beside it were not looked at");
}

struct BrokenField {
    const char* file;
    const char* good;
    const char* bad;  // what stands in its place
    const char* error;
};

constexpr BrokenField kBrokenFields[] = {
    {"camera-1.0.gcsv", "115,260,", "115,26O,", ":11: gx: '26O' is not a finite number"},
    {"camera-1.0.gcsv", "YxZ", "YyZ", ":4: orientation: 'YyZ' names one axis twice"},
    {"camera-1.3.gcsv", "version,1.3", "version,new", ":2: version: 'new' is not a finite number"},
    {"camera-1.3.gcsv", "mscale,0.01", "mscale,-1", ":17: mscale: -1 is not above 0"},
    {"camera-1.3.gcsv", "direction,0", "direction,4",
     ":13: frame_readout_direction: 4 is not 0 (down), 1 (up), 2 (to the left) or 3 (to the "
     "right)"},
    {"android/Gyroscope.csv", "0.0450,", "0.04.50,", ":3: z: '0.04.50' is not a finite number"},
    {"android/Gyroscope.csv", "seconds_elapsed,z,y,x", "seconds_elapsed,z,y,u",
     ":1: not a motion log of a format that is known: the first line is "
     "\"time,seconds_elapsed,z,y,u\". Known are"},
    {"android/wide-table.csv", ";25;", ";;",
     ":3: Time since start in ms: '' is not a finite number"},
    {"iphone/motion.csv", "500.020,0.1200", "500.020,inf",
     ":4: gyroRotationX(rad/s): 'inf' is not a finite number"},
    {"iphone/Gyroscope.csv", ",5.000000E-02", "", ":2: 3 fields where 4 are expected"},
    {"three-files/walk_gyro.csv", "0.12000", "O.12000", ":3: x: 'O.12000' is not a finite number"},
    {"three-files/walk_gyro.csv", ",81234505000000", ",",
     ":3: timestamp_ns: '' is not a finite number"},
    {"euroc/data.csv", "1500000000110000000,0.120000", "1500000000110000000,",
     ":4: w_RS_S_x [rad s^-1]: '' is not a finite number"},
    {"euroc/data.csv", "a_RS_S_z [m s^-2]", "temperature", ":1: column 7 is not a_RS_S_z [m s^-2]"},
    {"rotation/game.csv", "0.995004", "0.5", ":2: the quaternion's length is 0.51, not 1"},
    {"times/iso-8601.csv", "20.110", "2O.110",
     ":4: timestamp: '2023-11-14T23:13:2O.110+01:00' is not a date with a time"},
    {"flight/log.csv", "\"2048\"", "\"0\"", ":3: acc_1G: 0 is not above 0 and at most 1000000"},
    {"flight/log.csv", "gyroADC[2]", "gyroADC[3]", ":4: names no columns gyroADC[0] to gyroADC[2]"},
    {"flight/loops.csv", "looptime", "loops",
     ":4: names no column of time, and no looptime above the table"},
    {"android/one-sensor-a-row.csv", "110,gyroscope", "110x,gyroscope",
     ":8: timestamp_ms: '110x' is not a finite number"},
    {"times/no-names.csv", "0.1250,", "0.125O,", ":6: time: '0.125O' is not a finite number"},
    {"rotation/short.csv", "1020000,", "now,", ":3: time: 'now' is not a finite number"},
};

TEST(MotionLogs, ErrorsNameFileLineAndField) {
    for (const BrokenField& broken : kBrokenFields) {
        SCOPED_TRACE(std::string(broken.file) + " with " + broken.bad);
        const std::string path = kData + broken.file;
        std::string text = readFile(path);
        const size_t at = text.find(broken.good);
        ASSERT_NE(at, std::string::npos);
        text.replace(at, std::strlen(broken.good), broken.bad);
        const std::string error = errorOf([&] { parseTextLog(broken.file, text); });
        EXPECT_EQ(error.find(std::string(broken.file) + broken.error), 0u) << error;
    }
}

TEST(MotionLogs, FilesOfOneSensor) {
    const TemporaryFolder folder;
    const std::string gyro = readFile(kData + "three-files/walk_gyro.csv");
    const std::string accel = readFile(kData + "three-files/walk_accel.csv");
    // Names that say nothing: found by the values, and the only one that fits is taken.
    const std::string first = folder.write("a.csv", gyro);
    EXPECT_TRUE(readMotionLog(first).gravity.empty());
    folder.write("notes.csv", "not a log\n");
    folder.write("b.csv", accel);
    EXPECT_EQ(readMotionLog(first).gravity.size(), 10u);
    EXPECT_EQ(readMotionLog(folder.write("b.csv", accel)).rates.size(), 10u);
    folder.write("c.csv", accel);
    const MotionLog unsure = readMotionLog(first);
    EXPECT_TRUE(unsure.gravity.empty());
    EXPECT_NE(unsure.notes.back().find("2 files beside it could be"), std::string::npos);
    // One that is broken under the right name is an error; one of another time is not taken.
    folder.write("walk_accel.csv", accel + "oops\n");
    const std::string walk = folder.write("walk_gyro.csv", gyro);
    EXPECT_THROW(readMotionLog(walk), FileError);
    folder.write("walk_accel.csv", "0,9.81,0,1000000000\n");
    EXPECT_NE(readMotionLog(walk).files.back(), folder.path("walk_accel.csv"));

    const TemporaryFolder alone;
    EXPECT_THROW(readMotionLog(alone.write("accel.csv", accel)), FileError);
    EXPECT_THROW(readMotionLog(alone.write("magnetic.csv", accel)), FileError);
}

TEST(Archives, HoldLogsOfOneSession) {
    const auto sample = [](const std::string& name) {
        return std::pair("session/" + std::filesystem::path(name).filename().string(),
                         readFile(kData + name));
    };
    const auto gyroscope = sample("iphone/Gyroscope.csv");
    const auto accelerometer = sample("iphone/Accelerometer.csv");
    const auto elsewhere = std::pair<std::string, std::string>("b/gyro.csv", gyroscope.second);
    const auto outside = std::pair<std::string, std::string>("../../gyro.csv", gyroscope.second);
    using Files = std::vector<std::pair<std::string, std::string>>;
    // What is taken; or the error.
    const std::tuple<Files, const char*> kCases[] = {
        {{gyroscope, accelerometer, {"session/clip.mp4", "video"}, {"session/Metadata.csv", "x\n"}},
         "taken from the archive: session/Gyroscope.csv and session/Accelerometer.csv"},
        {{gyroscope, {"session/GyroscopeUncalibrated.csv", "x\n"}, {"__MACOSX/._gyro.csv", "x"}},
         "taken from the archive: session/Gyroscope.csv"},
        {{sample("camera-1.3.gcsv"), {"notes.txt", "of the day"}},
         "taken from the archive: session/camera-1.3.gcsv"},
        {{outside}, "taken from the archive: ../../gyro.csv"},
        {{gyroscope, elsewhere},
         ": holds several logs: session/Gyroscope.csv, b/gyro.csv; unpack the right one and give "
         "that"},
        {{{"a.csv", "1"}, {"b.bin", ""}}, "/a.csv:1: not a motion log of a format that is known"},
        {{{"a.mp4", "1"}}, ": holds no motion log; in it are a.mp4"},
        {{{"gyro.csv", "seconds_elapsed,x,y,z\n0,1,nonsense,3\n1,1,2,3\n"}},
         "/gyro.csv:2: y: 'nonsense' is not a finite number"},
        {{{"gyro.csv", std::string(40 << 20, '0')}},
         "/gyro.csv: has 41943040 bytes unpacked, more than an archive of this size may hold"},
        {{accelerometer}, ": holds no motion log"},
        {Files(10001, {"", ""}), ": holds 10001 files where at most 10000 are allowed"},
    };
    for (auto [files, expected] : kCases) {
        SCOPED_TRACE(expected);
        const TemporaryFolder folder;
        const std::string path = folder.path("export.zip");
        const bool areMany = files.size() > 100;
        for (size_t i = 0; areMany && i < files.size(); ++i) files[i].first = std::to_string(i);
        writeArchive(path, files);
        EXPECT_FALSE(isVideoFile(path));
        if (expected[0] != 't') {
            const std::string error = errorOf([&] { readMotionLog(path); });
            EXPECT_EQ(error.find(path + expected), 0u) << error;
            continue;
        }
        const MotionLog log = readMotionLog(path);
        EXPECT_EQ(log.rates.size(), 10u);
        EXPECT_EQ(log.notes.at(0), expected);
        EXPECT_EQ(log.files, std::vector<std::string>{path});
        if (files.size() != 4) continue;
        EXPECT_EQ(log.gravity.size(), 10u);
        EXPECT_EQ(log.notes.back(),
                  "session/clip.mp4 in the archive is not used: videos are read unpacked only");
    }
    // Of each broken archive there is an error, and nothing is ever written.
    const TemporaryFolder folder;
    const std::string path = folder.path("export.zip");
    writeArchive(path, {gyroscope}, "secret");
    const std::string error = errorOf([&] { readMotionLog(path); });
    EXPECT_EQ(error.find(path + "/session/Gyroscope.csv: cannot be unpacked: "), 0u) << error;
    writeArchive(path, {gyroscope, accelerometer});
    const std::string whole = readFile(path);
    for (size_t size = 1; size < whole.size(); size += 13) {
        folder.write("export.zip", whole.substr(0, size));
        EXPECT_THROW(readMotionLog(path), FileError) << size;
    }
    const auto files =
        std::filesystem::directory_iterator(std::filesystem::path(path).parent_path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

TEST(Gpmf, SamplesHaveUnitsAxesAndEvenTimes) {
    // Packets come a little early or late; the third is missing.
    const std::vector<TelemetryPacket> packets = {{1.0, 0.1, gpmfPacket(10)},
                                                  {1.102, 0.098, gpmfPacket(20)},
                                                  {1.3, 0.1, gpmfPacket(40)},
                                                  {1.398, 0.1, gpmfPacket(50)}};
    const MotionLog log = parseGpmf("clip.mp4", packets);
    EXPECT_EQ(log.format, "GPMF");
    ASSERT_EQ(log.rates.size(), 40u);
    ASSERT_EQ(log.gravity.size(), 40u);
    EXPECT_TRUE(log.notes.empty());
    expectNear(log.rates[3].value, {0.05, 0.2, 0.103}, 1e-12, "rate");  // Z, X, Y
    expectNear(log.gravity[3].value, {4.905, 0.33, 0.4}, 1e-12, "gravity");
    EXPECT_NEAR(log.rates[0].time, 1.0, 2e-3);
    for (size_t i = 1; i < 40; ++i) {
        const double step = log.rates[i].time - log.rates[i - 1].time;
        EXPECT_NEAR(step, i == 20 ? 0.11 : 0.01, i == 20 ? 1e-3 : 1e-4) << i;
    }
    const std::string matrix = gpmf("MTRX", 's', 2, shorts({0, 0, 1, 0, -1, 0, 1, 0, 0}));
    expectNear(parseGpmf("", {{0.0, 1.0, gpmfPacket(10, matrix)}}).rates[3].value,
               {0.05, 0.2, 0.103}, 1e-12, "by matrix");
    const MotionLog bare = parseGpmf("", {{2.0, 1.0, gpmfPacket(10, "")}});
    EXPECT_EQ(bare.notes.size(), 2u);
    expectNear(bare.rates[0].value, {0.1, -0.2, 0.05}, 1e-12, "as it is");
    EXPECT_NEAR(bare.rates[9].time, 2.9, 1e-9);  // spread over the packet
}

/// Big-endian floats.
std::string floats(const std::vector<float>& values) {
    std::string bytes;
    for (const float v : values) {
        uint32_t bits;
        std::memcpy(&bits, &v, sizeof bits);
        bytes += bytesOf(bits, 4, true);
    }
    return bytes;
}

std::string longs(const std::vector<int>& values) {
    std::string bytes;
    for (const int v : values) bytes += bytesOf(static_cast<uint64_t>(v), 4, true);
    return bytes;
}

std::string device(const std::vector<std::string>& streams) {
    std::string records = gpmf("DVID", 'L', 4, longs({1}));
    for (const std::string& stream : streams) records += gpmfInside("STRM", stream);
    return gpmfInside("DEVC", records);
}

TEST(Gpmf, EveryGenerationOfCameras) {
    // All hold rates whose Z, X, Y are these.
    const Vec3 rate = {0.1, -0.2, 0.05};
    const std::string scale = gpmf("SCAL", 's', 2, shorts({1000}));
    const std::string unit = gpmf("SIUN", 'c', 5, "rad/s");
    const std::string oldest = scale + gpmf("GYRO", 's', 6, shorts({100, -200, 50}));
    const std::string newer =
        gpmf("STMP", 'J', 8, bytesOf(123456, 8, true)) + gpmf("TSMP", 'L', 4, longs({1})) + unit;
    const std::string toZxy = gpmf("MTRX", 'f', 36, floats({0, 0, 1, 0, -1, 0, 1, 0, 0}));
    const std::string toXyz = gpmf("MTRX", 'f', 36, floats({0, -1, 0, 1, 0, 0, 0, 0, 1}));
    const std::string turned = scale + gpmf("GYRO", 's', 6, shorts({50, 200, 100}));
    const std::string temperature = gpmf("TMPC", 'f', 4, floats({40.0F}));
    const std::string rest =
        gpmf("SCAL", 's', 2, shorts({32767})) + gpmf("CORI", 's', 8, shorts({32767, 0, 0, 0}));
    const std::string broken = gpmf("CORI", 's', 8, shorts({0, 0, 0, 0}));
    const std::string bent = gpmf("IORI", 'f', 16, floats({0.96F, 0.28F, 0.0F, 0.0F}));
    const std::tuple<const char*, std::string, size_t, const char*> kCases[] = {
        {"oldest", device({oldest}), 2, "GYRO: SIUN is missing: taken for rad/s"},
        {"ORIN", device({newer + gpmf("ORIN", 'c', 1, "YxZ") + turned}), 0, ""},
        {"MTRX", device({newer + toZxy + temperature + turned}), 0, ""},
        {"MTRX and ORIO",
         device(
             {newer + gpmf("ORIN", 'c', 1, "YxZ") + gpmf("ORIO", 'c', 1, "ZXY") + toZxy + turned}),
         0, ""},
        {"to X, Y, Z", device({newer + gpmf("ORIO", 'c', 1, "XYZ") + toXyz + turned}), 0, ""},
        {"l", device({newer + scale + gpmf("GYRO", 'l', 12, longs({100, -200, 50}))}), 1,
         "GYRO: neither MTRX nor ORIN names the axes: taken for Z, X, Y"},
        {"f", device({newer + gpmf("GYRO", 'f', 12, floats({0.1F, -0.2F, 0.05F}))}), 1, ""},
        {"two devices", device({temperature, oldest}) + device({turned}), 2, ""},
        {"with CORI", device({oldest, rest}), 3,
         "CORI: the camera's own orientations are not used beside GYRO"},
        {"broken CORI", device({oldest, broken}), 3, "not used: CORI: is no rotation"},
        {"IORI", device({oldest, bent}), 3,
         "IORI: the camera has turned its pictures by up to 32.5 degrees, to stabilize them "
         "itself: "
         "they do not move as the log says"},
    };
    for (const auto& [name, packet, notes, note] : kCases) {
        SCOPED_TRACE(name);
        const MotionLog log = parseGpmf("clip.mp4", {{1.0, 0.1, packet}, {1.1, 0.1, packet}});
        ASSERT_EQ(log.rates.size(), 2u);
        expectNear(log.rates[0].value, rate, 1e-6, "rate");
        EXPECT_EQ(log.notes.size(), notes);
        if (note[0] == '\0') continue;
        EXPECT_NE(std::find(log.notes.begin(), log.notes.end(), note), log.notes.end());
    }
}

TEST(Gpmf, TheCamerasOwnOrientationsStandInForReadings) {
    // The camera stands with the picture's top up, and turns about that axis, its Z.
    std::vector<TelemetryPacket> packets;
    for (int i = 0; i < 20; ++i) {
        const auto half = static_cast<float>(0.02 * i);
        const std::string orientation =
            gpmf("CORI", 'f', 16, floats({std::cos(half), 0.0F, 0.0F, std::sin(half)}));
        const std::string down = gpmf("GRAV", 'f', 12, floats({0.0F, 0.0F, -1.0F}));
        packets.push_back({0.1 * i, 0.1, device({orientation, down})});
    }
    const MotionLog log = parseGpmf("clip.mp4", packets);
    EXPECT_EQ(log.notes.size(), 2u);
    ASSERT_EQ(log.orientations.size(), 20u);
    ASSERT_EQ(log.gravity.size(), 20u);
    const std::vector<MotionSample> rates = log.angularRates();
    ASSERT_EQ(rates.size(), 19u);
    for (const MotionSample& sample : rates) {
        expectNear(sample.value, {0.4, 0.0, 0.0}, 1e-5, "rate");
    }
    for (const MotionSample& sample : log.gravity) {
        expectNear(sample.value, {kStandardGravity, 0.0, 0.0}, 1e-6, "gravity");
    }
    for (const OrientationSample& q : log.orientations) {
        // Device x, in the world.
        expectNear({1.0 - 2.0 * (q.y * q.y + q.z * q.z), 2.0 * (q.x * q.y + q.w * q.z),
                    2.0 * (q.x * q.z - q.w * q.y)},
                   {0.0, 0.0, 1.0}, 1e-6, "up");
    }
}

TEST(Gpmf, ErrorsNamePacketAndKey) {
    const std::string good = gpmfPacket(10);
    std::string manyRecords;
    for (int i = 0; i < 10001; ++i) manyRecords += gpmf("NONE", 'b', 1, "");
    const auto with = [&](const std::string& from, const std::string& to) {
        std::string bytes = good;
        return bytes.replace(bytes.find(from), to.size(), to);
    };
    const std::pair<std::string, const char*> kCases[] = {
        {good.substr(0, 100), "DEVC: 268 bytes reach beyond the end"},
        {good.substr(0, 6), "ends inside the head of a record"},
        {with("rad/s", "rpm\0\0"), "SIUN: 'rp"},
        {with("YxZ", "YyZ"), "ORIN: 'YyZ' names one axis twice"},
        {with(shorts({1000}), shorts({0})), "SCAL: is not one or three numbers other than 0"},
        {with("GYROs", "GYROc"), "GYRO: type 'c' of 6 bytes is not one of numbers"},
        {gpmfInside("DEVC", gpmfInside("STRM", gpmf("GYRO", 's', 4, shorts({1, 2})))),
         "GYRO: 2 values in a sample where 3 are expected"},
        {gpmfInside("DEVC", gpmfInside("STRM", gpmf("GYRO", 'b', 3, "abc"))),
         "GYRO: numbers of 8 bits where sensors have 16 or more"},
        {manyRecords, "more than 10000 records in one"},
        {gpmfInside("DEVC", gpmfInside("STRM", gpmf("GYRO", 'f', 12, std::string(12, '\xFF')))),
         "GYRO: holds a value that is not finite"},
        {with("TSMPL", "TSMPc"), "TSMP: type 'c' of 4 bytes is not one of numbers"},
    };
    for (const auto& [bytes, message] : kCases) {
        const std::vector<TelemetryPacket> packets = {{0.0, 0.1, good}, {0.1, 0.1, bytes}};
        const std::string error = errorOf([&] { parseGpmf("clip.mp4", packets); });
        EXPECT_EQ(error.find(std::string("clip.mp4: GPMF packet 2: ") + message), 0u) << error;
    }
}

TEST(Camm, ReadsTypesAndNamesWhatIsWrong) {
    const std::string exposure =
        camm(1, {}) + bytesOf(8000000, 4, false) + bytesOf(21000000, 4, false);
    const std::vector<TelemetryPacket> packets = {
        {0.5, 0.0, camm(3, {0.4F, 9.78F, 0.3F})},
        {0.5, 0.0, camm(2, {0.1F, -0.2F, 0.05F}) + exposure},
        {0.51, 0.0, camm(0, {0.0F, 0.0F, static_cast<float>(M_PI / 3.0)})},
        {0.52, 0.0, camm(7, {1.0F, 2.0F, 3.0F}) + camm(4, {1.0F, 2.0F, 3.0F})},
        {0.53, 0.0, camm(5, std::vector<float>(6)) + camm(6, std::vector<float>(14))}};
    const MotionLog log = parseCamm("clip.mp4", packets);
    ASSERT_EQ(log.rates.size(), 1u);
    ASSERT_EQ(log.gravity.size(), 1u);
    ASSERT_EQ(log.orientations.size(), 1u);
    EXPECT_EQ(log.rates[0].time, 0.5);
    expectNear(log.rates[0].value, kFirstRate, 1e-7, "rate");
    expectNear(log.gravity[0].value, kFirstGravity, 1e-6, "gravity");
    EXPECT_EQ(log.orientations[0].time, 0.51);
    EXPECT_NEAR(log.orientations[0].w, std::cos(M_PI / 6.0), 1e-7);
    EXPECT_NEAR(log.orientations[0].z, std::sin(M_PI / 6.0), 1e-7);
    EXPECT_NEAR(*log.readoutTime, 0.021, 1e-12);
    ASSERT_EQ(log.frames.size(), 1u);
    EXPECT_EQ(log.frames[0].time, 0.5);
    EXPECT_NEAR(log.frames[0].exposure.value(), 0.008, 1e-12);
    EXPECT_NEAR(log.frames[0].readout.value(), 0.021, 1e-12);
    EXPECT_EQ(log.notes,
              std::vector<std::string>{
                  "CAMM: 1 positions (type 4), 1 places by satellite (type 5), 1 places "
                  "by satellite with their accuracy (type 6), 1 magnetic fields (type 7) "
                  "are there and not used"});

    const std::pair<std::string, const char*> kCases[] = {
        {camm(9, {}), "CAMM packet 1: type 9 is not one of 0 to 7"},
        {camm(2, {1.0F}), "CAMM packet 1: type 2: 4 bytes where 12 are expected"},
        {camm(3, {1.0F, NAN, 2.0F}), "CAMM packet 1: type 3: holds a value that is not finite"},
        {"abc", "CAMM packet 1: ends before its type"},
        {camm(3, {1.0F, 2.0F, 2.0F}), "its CAMM telemetry has no packets of type 0 or 2"},
    };
    for (const auto& [bytes, message] : kCases) {
        const std::vector<TelemetryPacket> wrong = {{0.0, 0.0, bytes}};
        EXPECT_EQ(errorOf([&] { parseCamm("clip.mp4", wrong); }),
                  std::string("clip.mp4: ") + message);
    }
}

/// A field of a message: a whole number, or bytes.
std::string field(int number, uint64_t value) {
    std::string bytes(1, static_cast<char>(number << 3));
    for (; value >= 128; value >>= 7) bytes += static_cast<char>((value & 127) | 128);
    return bytes + static_cast<char>(value);
}

std::string field(int number, const std::string& value) {
    return static_cast<char>(number << 3 | 2) + field(0, value.size()).substr(1) + value;
}

TEST(Sessions, HoldFramesAndLensShifts) {
    for (const char* file : {"sessions/whole.pb3", "sessions/stream.pb3"}) {
        SCOPED_TRACE(file);
        const MotionLog log = readMotionLog(kData + file);
        EXPECT_EQ(log.lensShiftWidth, 4032.0);
        ASSERT_EQ(log.frames.size(), 3u);
        ASSERT_EQ(log.lensShifts.size(), 3u);
        for (size_t i = 0; i < 3; ++i) {
            const double number = static_cast<double>(i);
            EXPECT_NEAR(log.frames[i].time.value(), 0.1 + 0.005 * number, 1e-12);
            EXPECT_NEAR(log.frames[i].exposure.value(), 0.008, 1e-12);
            EXPECT_NEAR(log.frames[i].readout.value(), 0.021 + 1e-9 * number, 1e-12);
            EXPECT_EQ(log.frames[i].focalLength, 1500.0);
            EXPECT_EQ(log.frames[i].width, 1920.0);
            EXPECT_NEAR(log.lensShifts[i].time, 0.100001 + 0.005 * number, 1e-12);
            EXPECT_EQ(log.lensShifts[i].x, 1.5 * number);
            EXPECT_EQ(log.lensShifts[i].y, -0.5 * number);
        }
        // The last message is cut off where a recording ends.
        const std::string whole = readFile(kData + file);
        for (size_t less = 1; less < 50; ++less) {
            const MotionLog cut = parseTextLog("cut", whole.substr(0, whole.size() - less));
            EXPECT_EQ(cut.rates.size() + cut.frames.size(), 12u) << less;
            EXPECT_EQ(cut.notes.back(), "cut off in its last message, which is left out");
        }
    }
}

TEST(Sessions, ErrorsNameTheMessageAndTheField) {
    const std::string vector = camm(2, {0.1F, -0.2F, 0.05F}).substr(4);
    const std::string time = field(1, uint64_t{100'000'000});
    std::string good;
    while (good.size() < 5000) good += field(4, time + field(2, vector));
    const std::string nan = vector.substr(0, 8) + bytesOf(0x7FC00000, 4, false);
    const std::pair<std::string, const char*> kCases[] = {
        {field(4, time), "motion: field 2, the rates, is missing"},
        {field(4, time + field(2, vector.substr(4))),
         "motion: field 2: is not three numbers of 4 bytes"},
        {field(4, field(1, vector) + field(2, vector)), "motion: field 1: is no whole number"},
        {field(4, time + field(2, nan)), "motion: field 2: nan is not a number from -200 to 200"},
        {field(4, field(1, ~uint64_t{0}) + field(2, vector)),
         "motion: field 1: 1.84467e+10 s where at most 9.3e+09 are allowed"},
        {field(4, time + "\x12"), "motion: does not end with a field"},
        {field(5, field(3, uint64_t{5})), "frame: field 1, the time, is missing"},
        {field(5, time + field(10, field(2, uint64_t{1}))),
         "frame: field 10: lens shift: field 2: is no number of 4 bytes"},
        {field(9, time), "a message of number 9 is not known"},
        {field(2, field(12, field(1, uint64_t{1'000'000}))),
         "camera: field 12: 1000000 pixels are not a width"},
    };
    for (const auto& [bytes, message] : kCases) {
        EXPECT_EQ(errorOf([&] { parseTextLog("session.pb3", good + bytes); }),
                  std::string("session.pb3: ") + message);
    }
    std::string frames = good;
    while (frames.size() < 100'000) frames += field(5, field(1, uint64_t{1}));
    EXPECT_EQ(errorOf([&] { parseTextLog("session.pb3", frames); }),
              "session.pb3: there are more of them than messages of an app's size would be");
    EXPECT_EQ(errorOf([&] { parseTextLog("session.pb3", field(5, time) + field(5, time)); }),
              "session.pb3: its messages hold no readings of a gyroscope");
}

TEST(Mett, ErrorsNameThePacket) {
    const std::string reading = camm(0, {0.1F, -0.2F, 0.05F}).substr(4);
    const std::string nan = reading.substr(0, 8) + bytesOf(0x7FC00000, 4, true);
    const std::pair<std::string, const char*> kCases[] = {
        {reading.substr(1), "telemetry packet 2: 11 bytes where 12 or a multiple are expected"},
        {nan, "telemetry packet 2: holds a value that is not finite"}};
    for (const auto& [bytes, message] : kCases) {
        const std::vector<TelemetryPacket> packets = {{0.0, 0.1, reading}, {0.1, 0.1, bytes}};
        EXPECT_EQ(errorOf([&] { parseMett("clip.mp4", packets); }),
                  std::string("clip.mp4: ") + message);
    }
    EXPECT_EQ(errorOf([&] {
                  parseMett("clip.mp4", {{0.0, 0.1, reading, true}});
              }),
              "clip.mp4: its telemetry has no application/gyro track");
    // Whatever is in the file, its boxes are read to their end and no further.
    const TemporaryFolder folder;
    const std::string file = readFile(kData + "timed-metadata.mp4");
    for (size_t size = 1; size < file.size(); size += 31) {
        const std::string path = folder.write("cut.mp4", file.substr(0, size));
        EXPECT_LE(metadataTypes(path).size(), 2u);
    }
    EXPECT_EQ(metadataTypes(kData + "timed-metadata.mp4"),
              (std::map<int, std::string>{{1, "application/gyro"}, {2, "application/accel"}}));
}

TEST(VideoTelemetry, IsFoundByTheTypeOfItsTrack) {
    const TemporaryFolder folder;
    const std::string path = folder.path("clip.mov");
    writeTelemetryFile(path, {{0.0, 0.1, gpmfPacket(10)}, {0.1, 0.1, gpmfPacket(20)}});
    const MotionLog log = readMotionLog(path);
    EXPECT_EQ(log.format, "GPMF");
    ASSERT_EQ(log.rates.size(), 20u);
    EXPECT_NEAR(log.rates[19].time, 0.19, 1e-3);

    // The same file with the other type, which FFmpeg does not write, and other packets.
    writeTelemetryFile(
        path, {{0.0, 0.1, camm(2, {1.0F, 2.0F, 3.0F})}, {0.1, 0.1, camm(2, {4.0F, 5.0F, 6.0F})}});
    std::string bytes = readFile(path);
    for (size_t at; (at = bytes.find("gpmd")) != std::string::npos;) bytes.replace(at, 4, "camm");
    const MotionLog camm = readMotionLog(folder.write("camm.mov", bytes));
    EXPECT_EQ(camm.format, "CAMM");
    ASSERT_EQ(camm.rates.size(), 2u);
    EXPECT_NEAR(camm.rates[1].time, 0.1, 1e-6);
    expectNear(camm.rates[1].value, {4.0, 5.0, 6.0}, 0.0, "rate");

    for (size_t at; (at = bytes.find("camm")) != std::string::npos;) bytes.replace(at, 4, "abcd");
    const std::string none = folder.write("none.mov", bytes);
    EXPECT_EQ(errorOf([&] { readMotionLog(none); }),
              none + ": holds no motion telemetry (no GPMF, CAMM or mett track)");
}

}  // namespace
