#pragma once

#include "common/median.h"
#include "common/text_fields.h"
#include "motion/formats/text_columns.h"
#include "motion/motion_log.h"

#include <array>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

namespace framehold {

/// A reading that the rows of a text log hold.
struct RowReading {
    size_t time;                 // column
    std::vector<size_t> values;  // columns
    std::function<void(double time, const std::vector<double>& values)> take;
};

/// A reading of three columns, put into `into` with times and values multiplied by their units.
RowReading vectorReading(size_t time, const std::array<size_t, 3>& axes, double timeUnit,
                         double valueUnit, std::vector<MotionSample>& into);

/// How a text log's rows are laid out.
struct RowLayout {
    std::vector<std::string> names;  // of all columns, for messages
    char separator = ',';
    /// Whether a row may leave a reading out, with all its values empty.
    bool mayOmit = false;
};

/// Takes the readings of all rows that are left. Fails with line and column name where a field is
/// missing, not a number or one beyond 1e30, and if no row is left.
void readRows(LineReader& lines, const RowLayout& layout, const std::vector<RowReading>& readings);

/// The unit of time, in seconds, in which readings `step` units apart come from a motion sensor of
/// 10 to 10000 readings per second.
double likelyTimeUnit(double step);

/// The same for samples that have been read with a unit of 1, which are then brought to seconds;
/// 1 if there are too few to tell.
template <class Sample>
double applyLikelyTimeUnit(std::vector<Sample>& samples) {
    if (samples.size() < 2) return 1.0;
    std::vector<double> steps;
    for (size_t i = 1; i < samples.size(); ++i) {
        steps.push_back(std::abs(samples[i].time - samples[i - 1].time));
    }
    const double unit = likelyTimeUnit(median(steps));
    for (Sample& sample : samples) sample.time *= unit;
    return unit;
}

/// What tells the user of a unit that has been guessed.
std::string timeUnitNote(double unit);

/// Puts samples of a sensor that no column names where they belong: by the words in the file's
/// name, else by the size of the values. Throws FileError if the name is that of another sensor.
void placeUnnamed(const std::string& file, std::vector<MotionSample> samples, MotionLog& log);

/// Brings gravity whose unit is not said to m/s^2, by its size.
void applyLikelyGravityUnit(MotionLog& log);

}  // namespace framehold
