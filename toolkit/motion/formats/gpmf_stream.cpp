#include "motion/formats/gpmf_stream.h"

#include "common/text_fields.h"

namespace framehold {

namespace {

double unitNamed(const GpmfSensor& sensor, const std::string& name) {
    for (const auto& [known, unit] : sensor.units) {
        if (name == known) return unit;
    }
    throw std::invalid_argument(
        fmt::format("SIUN: '{}' is not a unit of {} that is known: {} or {}", excerpt(name),
                    sensor.key, sensor.units.front().first, sensor.units.back().first));
}

/// From channels as a record names them, such as "YxZ" (lower case: negated), to Z, X, Y.
Matrix matrixOfChannels(const GpmfRecord& record) {
    Matrix matrix{};
    const AxisMapping order = [&] {
        try {
            return AxisMapping::fromLetters(record.text());
        } catch (const std::invalid_argument& error) {
            throw std::invalid_argument(fmt::format("{}: {}", record.key, error.what()));
        }
    }();
    constexpr size_t kRowOfAxis[] = {1, 2, 0};
    for (size_t axis = 0; axis < 3; ++axis) {
        Vec3 unit{};
        unit[axis] = 1.0;
        const Vec3 channels = order.toDevice(unit);  // where the axis shows up, and its sign
        for (size_t channel = 0; channel < 3; ++channel) {
            matrix[kRowOfAxis[axis]][channel] = channels[channel];
        }
    }
    return matrix;
}

Matrix product(const Matrix& a, const Matrix& b) {
    Matrix result{};
    for (size_t row = 0; row < 3; ++row) {
        for (size_t column = 0; column < 3; ++column) {
            for (size_t i = 0; i < 3; ++i) result[row][column] += a[row][i] * b[i][column];
        }
    }
    return result;
}

Matrix matrixOf(const std::vector<double>& values) {
    if (values.size() != 9) {
        throw std::invalid_argument(
            fmt::format("MTRX: {} numbers where 9 are expected", values.size()));
    }
    Matrix matrix;
    for (size_t i = 0; i < 9; ++i) matrix[i / 3][i % 3] = values[i];
    return matrix;
}

std::vector<double> divisorsOf(const GpmfRecord& record) {
    const std::vector<double> values = record.numbers();
    const bool fits = values.size() == 1 || values.size() == 3;
    if (!fits || std::any_of(values.begin(), values.end(),
                             [](double v) { return v == 0.0 || !std::isfinite(v); })) {
        throw std::invalid_argument("SCAL: is not one or three numbers other than 0");
    }
    return values;
}

size_t samplesOf(const GpmfRecord& record) {
    const std::vector<double> values = record.numbers();
    if (values.size() != 1 || !(values[0] >= 0.0 && values[0] <= 1e12)) {
        throw std::invalid_argument("TSMP: is not one number of samples");
    }
    return static_cast<size_t>(values[0]);
}

}  // namespace

Vec3 times(const Matrix& m, const Vec3& v) {
    Vec3 result{};
    for (size_t row = 0; row < 3; ++row) {
        for (size_t column = 0; column < 3; ++column) result[row] += m[row][column] * v[column];
    }
    return result;
}

StreamState streamState(const GpmfSensor& sensor, const std::vector<GpmfRecord>& stream) {
    StreamState state;
    std::optional<Matrix> matrix, before, after;  // axes before it, and after it
    for (const GpmfRecord& record : stream) {
        if (record.key == "SCAL") state.divisors = divisorsOf(record);
        if (record.key == "TSMP") state.samplesSoFar = samplesOf(record);
        if (!sensor.hasUnit) continue;
        if (record.key == "MTRX") matrix = matrixOf(record.numbers());
        if (record.key == "ORIN") before = matrixOfChannels(record);
        if (record.key == "ORIO") after = matrixOfChannels(record);
        if (record.key == "SIUN") {
            state.unit = unitNamed(sensor, record.text());
            state.hasUnit = true;
        }
    }
    state.toDevice = matrix ? (after ? product(*after, *matrix) : matrix) : before;
    return state;
}

}  // namespace framehold
