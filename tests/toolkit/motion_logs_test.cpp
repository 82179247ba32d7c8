// Every format of motion log, read from a small sample and from broken ones.
#include "common/text_fields.h"
#include "motion/formats/text_times.h"
#include "motion/motion_log_reader.h"
#include "support/archives.h"
#include "support/temporary_folder.h"
#include "toolkit/sample_logs.h"

#include <cmath>
#include <cstring>

#include <gtest/gtest.h>

using namespace framehold;
using namespace zpr_test;

namespace {

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
        const MotionLog log = readMotionLog(kSampleLogs + sample.file);
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
        MotionLog log = readMotionLog(kSampleLogs + file);
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
    const MotionLog log = readMotionLog(kSampleLogs + "camera-1.3.gcsv");
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
        const std::string path = kSampleLogs + broken.file;
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
    const std::string gyro = readFile(kSampleLogs + "three-files/walk_gyro.csv");
    const std::string accel = readFile(kSampleLogs + "three-files/walk_accel.csv");
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
                         readFile(kSampleLogs + name));
    };
    const auto gyroscope = sample("iphone/Gyroscope.csv");
    const auto accelerometer = sample("iphone/Accelerometer.csv");
    const auto elsewhere = std::pair<std::string, std::string>("b/gyro.csv", gyroscope.second);
    const auto outside = std::pair<std::string, std::string>("../../gyro.csv", gyroscope.second);
    using Files = std::vector<std::pair<std::string, std::string>>;
    // What is taken; or the error.
    const std::tuple<Files, const char*> kCases[] = {
        {{gyroscope, accelerometer, {"session/clip.mp4", "video"}, {"session/Metadata.csv", "x\n"}},
         "taken from the archive: session/Gyroscope.csv, session/Accelerometer.csv"},
        {{gyroscope, {"session/GyroscopeUncalibrated.csv", "x\n"}, {"__MACOSX/._gyro.csv", "x"}},
         "taken from the archive: session/Gyroscope.csv"},
        {{sample("camera-1.3.gcsv"), {"notes.txt", "of the day"}},
         "taken from the archive: session/camera-1.3.gcsv"},
        {{{"b/gyro.csv", gyroscope.second}, {"b/x_timestamps.csv", "1.5\n1.6\n"}},
         "taken from the archive: b/gyro.csv, b/x_timestamps.csv"},
        {{{"b/gyro.csv", gyroscope.second},
          {"b/x_timestamps.csv", "1500000000\n1533000000\n"},
          {"b/x_metadata.csv",
           "Timestamp[nanosec],fx[px],Exposure time[nanosec]\n1467000000,500,30000000\n"
           "1500000000,502,10000000\n1600000000,501,20000000\n"}},
         "taken from the archive: b/gyro.csv, b/x_metadata.csv, b/x_timestamps.csv"},
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
        EXPECT_EQ(log.frames.size(),
                  log.notes[0].find("timestamps") == std::string::npos ? 0u : 2u);
        if (log.notes[0].find("metadata") != std::string::npos) {
            // The row of the same time, and medians.
            EXPECT_EQ(log.frames.at(0).exposure.value(), 0.01);
            EXPECT_EQ(log.frames.at(1).exposure.value(), 0.02);
            EXPECT_EQ(log.frames.at(1).focalLength.value(), 501.0);
        }
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

}  // namespace
