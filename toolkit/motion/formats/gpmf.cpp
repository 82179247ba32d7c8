#include "common/angles.h"
#include "common/interruption.h"
#include "common/library_constants.h"
#include "common/text_fields.h"
#include "motion/formats/gpmf_records.h"
#include "motion/formats/packet_clock.h"
#include "motion/formats/telemetry_formats.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

/// A sensor as GPMF knows it.
struct GpmfSensor {
    const char* key;
    std::vector<std::pair<std::string_view, double>> units;  // by name, in rad/s or m/s^2
};

const GpmfSensor kGyroscope = {"GYRO", {{"rad/s", 1.0}, {"deg/s", toRadians(1.0)}}};
const GpmfSensor kAccelerometer = {"ACCL",
                                   {{"m/s\xB2", 1.0},
                                    {"m/s\xC2\xB2", 1.0},
                                    {"m/s2", 1.0},
                                    {"m/s^2", 1.0},
                                    {"g", kStandardGravity}}};

using Matrix = std::array<Vec3, 3>;

Vec3 times(const Matrix& m, const Vec3& v) {
    Vec3 result{};
    for (size_t row = 0; row < 3; ++row) {
        for (size_t column = 0; column < 3; ++column) result[row] += m[row][column] * v[column];
    }
    return result;
}

/// Scaling, number and axes of the samples of an STRM record.
struct StreamState {
    std::vector<double> divisors = {1.0};
    double unit = 1.0;
    bool hasUnit = false;
    std::optional<size_t> samplesSoFar;  // with those of this packet
    std::optional<Matrix> toDevice;
};

double unitNamed(const GpmfSensor& sensor, const std::string& name) {
    for (const auto& [known, unit] : sensor.units) {
        if (name == known) return unit;
    }
    throw std::invalid_argument(
        fmt::format("SIUN: '{}' is not a unit of {} that is known: {} or {}", excerpt(name),
                    sensor.key, sensor.units.front().first, sensor.units.back().first));
}

/// From channels as ORIN names them, such as "YxZ" (lower case: negated), to Z, X, Y.
Matrix matrixOfChannels(const std::string& letters) {
    Matrix matrix{};
    const AxisMapping order = [&] {
        try {
            return AxisMapping::fromLetters(letters);
        } catch (const std::invalid_argument& error) {
            throw std::invalid_argument(fmt::format("ORIN: {}", error.what()));
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

/// Collects the samples of one sensor over all packets.
class GpmfStream {
public:
    explicit GpmfStream(const GpmfSensor& sensor) : sensor_(sensor) {}

    bool isIn(const std::vector<GpmfRecord>& stream) const { return find(stream) != nullptr; }

    // stream: what is in an STRM record that holds this sensor.

    /// Makes room for the samples, so that memory is taken once.
    void count(const std::vector<GpmfRecord>& stream, const TelemetryPacket& /*packet*/) {
        constexpr size_t kSmallestSample = 3;  // bytes
        const GpmfRecord& record = *find(stream);
        counted_ += std::min(record.count, record.data.size() / kSmallestSample);
    }

    void add(const std::vector<GpmfRecord>& stream, const TelemetryPacket& packet) {
        StreamState state = stateOf(stream);
        hasUnit_ = hasUnit_ && state.hasUnit;
        hasAxes_ = hasAxes_ && state.toDevice;
        const GpmfRecord& record = *find(stream);
        if (record.type == 'b' || record.type == 'B') {
            throw std::invalid_argument(
                fmt::format("{}: numbers of 8 bits where sensors have 16 or more", sensor_.key));
        }
        const std::vector<double> numbers = record.numbers();
        if (record.count > 0 && numbers.size() != 3 * record.count) {
            throw std::invalid_argument(
                fmt::format("{}: {} values in a sample where 3 are expected", sensor_.key,
                            numbers.size() / record.count));
        }
        clock_.add(packet.time, packet.duration, record.count, state.samplesSoFar);
        samples_.reserve(counted_);
        for (size_t i = 0; i + 2 < numbers.size(); i += 3) {
            samples_.push_back({0.0, scaled(state, {numbers[i], numbers[i + 1], numbers[i + 2]})});
        }
    }

    /// The samples with their times; they are gone then.
    std::vector<MotionSample> takeSamples() {
        const std::vector<double> times = clock_.sampleTimes();
        for (size_t i = 0; i < samples_.size(); ++i) samples_[i].time = times[i];
        return std::move(samples_);
    }

    void addNotes(MotionLog& log) const {
        if (samples_.empty()) return;
        if (!hasUnit_) {
            log.notes.push_back(
                fmt::format("{}: SIUN is missing: taken for {}", sensor_.key,
                            sensor_.units.front().first == "rad/s" ? "rad/s" : "m/s^2"));
        }
        if (!hasAxes_) {
            log.notes.push_back(fmt::format(
                "{}: neither MTRX nor ORIN names the axes: taken for Z, X, Y", sensor_.key));
        }
    }

private:
    const GpmfRecord* find(const std::vector<GpmfRecord>& stream) const {
        for (const GpmfRecord& record : stream) {
            if (record.key == sensor_.key) return &record;
        }
        return nullptr;
    }

    StreamState stateOf(const std::vector<GpmfRecord>& stream) const {
        StreamState state;
        for (const GpmfRecord& record : stream) {
            if (record.key == "SCAL") state.divisors = divisorsOf(record);
            if (record.key == "TSMP") state.samplesSoFar = samplesOf(record);
            if (record.key == "MTRX") state.toDevice = matrixOf(record.numbers());
            if (record.key == "ORIN" && !state.toDevice) {
                state.toDevice = matrixOfChannels(record.text());
            }
            if (record.key == "SIUN") {
                state.unit = unitNamed(sensor_, record.text());
                state.hasUnit = true;
            }
        }
        return state;
    }

    static size_t samplesOf(const GpmfRecord& record) {
        const std::vector<double> values = record.numbers();
        if (values.size() != 1 || !(values[0] >= 0.0 && values[0] <= 1e12)) {
            throw std::invalid_argument("TSMP: is not one number of samples");
        }
        return static_cast<size_t>(values[0]);
    }

    Vec3 scaled(const StreamState& state, Vec3 value) const {
        for (size_t i = 0; i < 3; ++i) {
            value[i] *= state.unit / state.divisors[state.divisors.size() == 1 ? 0 : i];
        }
        if (state.toDevice) value = times(*state.toDevice, value);
        if (!std::all_of(value.begin(), value.end(), [](double v) { return std::isfinite(v); })) {
            throw std::invalid_argument(
                fmt::format("{}: holds a value that is not finite", sensor_.key));
        }
        return value;
    }

    const GpmfSensor& sensor_;
    PacketClock clock_;
    std::vector<MotionSample> samples_;  // without times
    size_t counted_ = 0;
    bool hasUnit_ = true;
    bool hasAxes_ = true;
};

/// Takes the streams of the first device that has each sensor.
class GpmfParser {
public:
    void count(const TelemetryPacket& packet) { read(packet, &GpmfStream::count); }
    void add(const TelemetryPacket& packet) { read(packet, &GpmfStream::add); }

    MotionLog finish() {
        MotionLog log;
        gyroscope_.stream.addNotes(log);
        accelerometer_.stream.addNotes(log);
        log.rates = gyroscope_.stream.takeSamples();
        log.gravity = accelerometer_.stream.takeSamples();
        return log;
    }

private:
    using Use = void (GpmfStream::*)(const std::vector<GpmfRecord>& stream,
                                     const TelemetryPacket& packet);

    struct Source {
        GpmfStream stream;
        std::optional<size_t> device;
    };

    void read(const TelemetryPacket& packet, Use use) {
        throwIfInterrupted();
        size_t device = 0;
        for (const GpmfRecord& record : gpmfRecords(packet.bytes)) {
            if (record.key != "DEVC") continue;
            for (const GpmfRecord& stream : gpmfRecords(record.data)) {
                if (stream.key == "STRM") readStream(device, gpmfRecords(stream.data), packet, use);
            }
            ++device;
        }
    }

    void readStream(size_t device, const std::vector<GpmfRecord>& stream,
                    const TelemetryPacket& packet, Use use) {
        for (Source* source : {&gyroscope_, &accelerometer_}) {
            if (!source->stream.isIn(stream)) continue;
            if (!source->device) source->device = device;
            if (source->device == device) (source->stream.*use)(stream, packet);
        }
    }

    Source gyroscope_{GpmfStream(kGyroscope), {}};
    Source accelerometer_{GpmfStream(kAccelerometer), {}};
};

}  // namespace

MotionLog parseGpmf(const std::string& name, const std::vector<TelemetryPacket>& packets) {
    GpmfParser parser;
    for (const auto pass : {&GpmfParser::count, &GpmfParser::add}) {
        for (size_t i = 0; i < packets.size(); ++i) {
            try {
                (parser.*pass)(packets[i]);
            } catch (const std::invalid_argument& error) {
                throw FileError(name, 0, fmt::format("GPMF packet {}: {}", i + 1, error.what()));
            }
        }
    }
    MotionLog log = parser.finish();
    if (log.rates.empty()) throw FileError(name, 0, "its GPMF telemetry has no GYRO samples");
    log.format = "GPMF";
    log.detectedBy = "the DEVC records of the telemetry track";
    log.sortByTime();
    return log;
}

}  // namespace framehold
