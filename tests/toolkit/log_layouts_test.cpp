// Samples of every layout of motion logs, made by scripts/make_motion_samples.py, against the motion
// that they were made from.
#include "common/text_fields.h"
#include "motion/formats/text_columns.h"
#include "motion/motion_log_reader.h"

#include <cmath>
#include <string>

#include <gtest/gtest.h>

using namespace framehold;

namespace {

const std::string kLayouts = FRAMEHOLD_TEST_DATA "/layouts/";

TEST(LogLayouts, HoldTheMotionThatTheyWereMadeFrom) {
    const MotionLog truth = readMotionLog(kLayouts + "truth.gcsv");
    ASSERT_GT(truth.rates.size(), 100u);
    const std::string list = readFile(kLayouts + "samples.csv");
    LineReader lines("samples.csv", list);
    lines.next();
    size_t samples = 0;
    for (; lines.next(); ++samples) {
        // folder, video, log, format, axes, clock_s, precision_rad_s, has_frame_times
        const auto fields = splitQuoted(lines.line(), ',');
        const std::string folder(fields[0]);
        SCOPED_TRACE(folder);
        MotionLog log = readMotionLog(kLayouts + folder + "/" + std::string(fields[2]));
        EXPECT_EQ(log.format, fields[3]);
        const AxisMapping axes = AxisMapping::fromLetters(std::string(fields[4]));
        const double clock = lines.number(fields[5], "clock_s");
        const double precision = lines.number(fields[6], "precision_rad_s");
        if (log.format == "rotation vector") {
            EXPECT_EQ(log.orientations.size(), 90u);
            continue;
        }
        ASSERT_EQ(log.rates.size(), truth.rates.size());
        ASSERT_EQ(log.gravity.size(), truth.gravity.size());
        // Milliseconds have no more digits, and seconds since 1970 no more bits.
        const double tick = folder == "date-and-ms" ? 5.1e-4 : 2e-6 + 2.0 * 0x1p-53 * clock;
        log.toDeviceAxes(axes);
        for (size_t i = 0; i < truth.rates.size(); ++i) {
            ASSERT_NEAR(log.rates[i].time, truth.rates[i].time + clock, tick) << i;
            for (size_t axis = 0; axis < 3; ++axis) {
                ASSERT_NEAR(log.rates[i].value[axis], truth.rates[i].value[axis], precision) << i;
                // Readings of 1/2048 g, with three digits.
                ASSERT_NEAR(log.gravity[i].value[axis], truth.gravity[i].value[axis],
                            std::max(6e-6, 10.0 * precision))
                    << i;
            }
        }
    }
    EXPECT_GE(samples, 20u);
}

}  // namespace
