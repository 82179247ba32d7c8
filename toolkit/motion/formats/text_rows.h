#pragma once

#include "common/median.h"
#include "common/text_fields.h"
#include "motion/formats/text_times.h"
#include "motion/motion_log.h"

#include <array>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

namespace framehold {

/// Sensor reading that each row of a text log holds.
struct RowReading {
    TimeSource time;
    std::vector<size_t> values;  // indices of their columns
    // time: in seconds, or in the column's unit if that is not named.
    std::function<void(double time, const std::vector<double>& values)> take;
    std::function<void(size_t rows)> reserve;  // makes room for at most so many
    // False for rows that hold another reading; not set: every row holds this one.
    std::function<bool(const std::vector<std::string_view>& fields)> isIn = {};
};

/// Reading of three columns that is appended to `into`, values multiplied by their unit.
RowReading vectorReading(const TimeSource& time, const std::array<size_t, 3>& axes, double unit,
                         std::vector<MotionSample>& into);

/// Layout of a text log's rows.
struct RowLayout {
    std::vector<std::string> names;  // of all columns, for messages
    char separator = ',';
    bool mayOmit = false;  // a row may leave a reading out, with all its values empty
};

/// Takes the readings of all rows that are left. Numbers may be in quotes, and have a decimal comma
/// where commas do not separate. Lines that start with # are comments. Left out, and noted in
/// `notes`: readings with a value that is NaN, and a last row that was cut off within a field or
/// before one. Throws FileError with line and column name where another field is missing, not a
/// number or one beyond 1e30, and if no row is left.
void readRows(LineReader& lines, const RowLayout& layout, const std::vector<RowReading>& readings,
              std::vector<std::string>& notes);

/// Takes the log's orientation and the readout from comments above a table, "# orientation,XYZ" and
/// "# frame_readout_time,16.6" in ms, as writeTextLog writes them. Other comments are passed over.
void readHeaderComments(std::string_view content, MotionLog& log);

/// Reading of four columns x, y, z and w, or of three without w, that is appended to the log's
/// orientations. Throws FileError where their length is not 1.
RowReading quaternionReading(const LineReader& lines, const TimeSource& time,
                             const std::vector<size_t>& columns, MotionLog& log);

/// Unit of time, in seconds, at which a motion sensor of 10 to 10000 readings per second has
/// readings `step` units apart.
double likelyTimeUnit(double step);

/// Brings samples whose times have been read with a unit of 1 to seconds. Returns the unit, 1 if
/// there are too few samples to guess it.
template <class Sample>
double applyLikelyTimeUnit(std::vector<Sample>& samples) {
    if (samples.size() < 2) return 1.0;
    std::vector<double> steps;
    steps.reserve(samples.size());
    for (size_t i = 1; i < samples.size(); ++i) {
        steps.push_back(std::abs(samples[i].time - samples[i - 1].time));
    }
    const double unit = likelyTimeUnit(median(std::move(steps)));
    for (Sample& sample : samples) sample.time *= unit;
    return unit;
}

/// Note for the user about a unit of time that has been guessed.
std::string timeUnitNote(double unit);

/// Adds samples of a sensor that no column names to the log's rates or gravity: by the words in the
/// file's name, else by the size of the values. Throws FileError if the name is another sensor's.
void placeUnnamed(const std::string& file, std::vector<MotionSample> samples, MotionLog& log);

/// Brings gravity whose unit is not named to m/s^2: values of about 1 are taken for g.
void applyLikelyGravityUnit(MotionLog& log);

}  // namespace framehold
