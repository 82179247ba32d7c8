// Logs written in every format and read back.
#include "common/output_file.h"
#include "common/text_fields.h"
#include "motion/motion_log_reader.h"
#include "motion/motion_log_writer.h"
#include "support/temporary_folder.h"
#include "toolkit/sample_logs.h"

#include <cmath>
#include <filesystem>

#include <gtest/gtest.h>

using namespace framehold;
using namespace zpr_test;

namespace {

void write(const MotionLog& log, LogFormat format, const std::string& path) {
    if (format == LogFormat::kCamm) {
        const TelemetryTrack track{TelemetryKind::kCamm, cammPackets(log, 0.0),
                                   log.orientation.letters()};
        writeMotionTrack({path, true}, "", track, [] {});
        return;
    }
    OutputFile file({path, true});
    writeTextLog(log, format, file.stream(), [] {});
    file.commit();
}

/// Values are equal to within a share of them, times to the last bits of seconds since 1970.
void expectEqual(const std::vector<MotionSample>& got, const std::vector<MotionSample>& expected,
                 double share, const char* sensor) {
    ASSERT_EQ(got.size(), expected.size()) << sensor;
    for (size_t i = 0; i < got.size(); ++i) {
        const double second = std::max(1.0, std::abs(expected[i].time));
        ASSERT_NEAR(got[i].time, expected[i].time, 1e-9 + 2e-16 * second) << sensor << i;
        for (size_t axis = 0; axis < 3; ++axis) {
            const double value = expected[i].value[axis];
            ASSERT_NEAR(got[i].value[axis], value, share * std::abs(value)) << sensor << i;
        }
    }
}

constexpr double kFloat = 6e-8;  // half a step of 32-bit floats, as a share

struct Kind {
    LogFormat format;
    const char* name;
    double share;  // of a value that may be lost
};
constexpr Kind kKinds[] = {{LogFormat::kGcsv, "log.gcsv", 3e-16},
                           {LogFormat::kCsv, "log.csv", 3e-16},
                           {LogFormat::kCamm, "log.mp4", kFloat}};

class LogWriting : public ::testing::TestWithParam<const char*> {};

TEST_P(LogWriting, IsReadBackToTheLastDigit) {
    const MotionLog log = readMotionLog(kSampleLogs + GetParam());
    const TemporaryFolder folder;
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        const std::string first = folder.path(kind.name), again = folder.path("again") + kind.name;
        write(log, kind.format, first);
        const MotionLog back = readMotionLog(first);
        const bool isGcsv = kind.format == LogFormat::kGcsv;
        // Floats get the digits that are theirs.
        const double share = log.format == "mett" || log.format == "CAMM" ? kFloat : kind.share;
        expectEqual(back.rates, isGcsv ? log.angularRates() : log.rates, share, "rate ");
        // A .gcsv has gravity at the times of the rates.
        if (!isGcsv) expectEqual(back.gravity, log.gravity, share, "gravity ");
        ASSERT_EQ(back.gravity.empty(), log.gravity.empty());
        ASSERT_EQ(back.orientations.size(), isGcsv ? 0 : log.orientations.size());
        for (size_t i = 0; i < back.orientations.size(); ++i) {
            EXPECT_NEAR(back.orientations[i].x, log.orientations[i].x, kind.share) << i;
            EXPECT_NEAR(back.orientations[i].w, log.orientations[i].w, kind.share) << i;
        }
        EXPECT_EQ(back.orientation.letters(), log.orientation.letters());
        EXPECT_NEAR(back.readoutTime.value_or(-1.0), log.readoutTime.value_or(-1.0), 1e-12);
        write(back, kind.format, again);
        EXPECT_EQ(readFile(first), readFile(again));
        if (isGcsv) continue;
        // By way of the other one, with all digits that the less exact one has.
        const Kind& other = kind.format == LogFormat::kCsv ? kKinds[2] : kKinds[1];
        write(back, other.format, folder.path(other.name));
        write(readMotionLog(folder.path(other.name)), kind.format, again);
        const bool isExact = kind.format == LogFormat::kCamm;
        EXPECT_TRUE(!isExact || readFile(first) == readFile(again));
        expectEqual(readMotionLog(again).rates, log.rates, 2.0 * kFloat, "rate ");
    }
}

INSTANTIATE_TEST_SUITE_P(
    Samples, LogWriting,
    ::testing::Values("camera-1.0.gcsv", "camera-1.3.gcsv", "android/Gyroscope.csv",
                      "android/wide-table.csv", "android/degrees.csv", "iphone/motion.csv",
                      "three-files/walk_gyro.csv", "euroc/data.csv", "iphone/rotation-rate.csv",
                      "android/one-sensor-a-row.csv", "times/date-and-ms.csv", "times/iso-8601.csv",
                      "timed-metadata.mp4", "times/no-names.csv", "flight/log.csv",
                      "rows/polled.csv", "rotation/game.csv", "rotation/short.csv",
                      "rotation/Orientation.csv"));

TEST(LogWritingOfEverything, KeepsEachSensorsTimes) {
    MotionLog log;
    log.orientation = AxisMapping::fromLetters("YxZ");
    log.readoutTime = 0.0162;
    for (int i = 0; i < 20; ++i) {
        const double t = -3.25 + 4.0 * i;  // with gaps that need coarser times
        log.rates.push_back({t, {0.1 * i, -0.2, 1e-7 * i}});
        if (i % 3 == 0) log.gravity.push_back({t, {0.5, 9.75, 0.01 * i}});
        if (i % 2 == 0) log.orientations.push_back({t + 0.5, 0.5, -0.5, 0.5, i < 10 ? 0.5 : -0.5});
    }
    log.rates.push_back(log.rates.back());  // equal stamps stay apart
    const TemporaryFolder folder;
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        write(log, kind.format, folder.path(kind.name));
        const MotionLog back = readMotionLog(folder.path(kind.name));
        expectEqual(back.rates, log.rates, kind.share, "rate ");
        EXPECT_EQ(lossesOf(log, kind.format).size(), kind.format == LogFormat::kGcsv ? 1u : 0u);
        EXPECT_EQ(back.orientation.letters(), "YxZ");
        EXPECT_NEAR(back.readoutTime.value_or(0.0), 0.0162, 1e-12);
        if (kind.format == LogFormat::kGcsv) {
            EXPECT_NEAR(back.gravity[2].value[2], 0.02, 1e-12);  // between 0 and 0.03
            continue;
        }
        expectEqual(back.gravity, log.gravity, kind.share, "gravity ");
        ASSERT_EQ(back.orientations.size(), log.orientations.size());
        for (size_t i = 0; i < back.orientations.size(); ++i) {
            EXPECT_NEAR(back.orientations[i].time, log.orientations[i].time, 1e-6);
            EXPECT_NEAR(back.orientations[i].z, log.orientations[i].z, 1e-7) << i;
        }
    }
}

/// The digits that a text log has are those that come out of telemetry's 32-bit floats.
TEST(LogWritingOfEverything, TelemetryKeepsPrintedDigits) {
    const TemporaryFolder folder;
    const MotionLog log = readMotionLog(kSampleLogs + "android/wide-table.csv");
    write(log, LogFormat::kCsv, folder.path("straight.csv"));
    write(log, LogFormat::kCamm, folder.path("log.mov"));
    write(readMotionLog(folder.path("log.mov")), LogFormat::kCsv, folder.path("by-mov.csv"));
    EXPECT_EQ(readFile(folder.path("straight.csv")), readFile(folder.path("by-mov.csv")));
}

}  // namespace
