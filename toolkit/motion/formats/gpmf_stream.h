#pragma once

#include "media/telemetry_track.h"
#include "motion/formats/gpmf_records.h"
#include "motion/formats/packet_clock.h"
#include "motion/motion_log.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace framehold {

/// A sensor as GPMF knows it.
struct GpmfSensor {
    const char* key;
    std::vector<std::pair<std::string_view, double>> units;  // by name, in rad/s or m/s^2
    bool hasUnit = true;                                     // and axes that are named
};

/// Rows of a matrix.
using Matrix = std::array<Vec3, 3>;

Vec3 times(const Matrix& m, const Vec3& v);

/// Scaling, number and axes of the samples of an STRM record.
struct StreamState {
    std::vector<double> divisors = {1.0};
    double unit = 1.0;
    bool hasUnit = false;
    std::optional<size_t> samplesSoFar;  // with those of this packet
    std::optional<Matrix> toDevice;
};

/// Reads what an STRM record says of the samples in it. Throws std::invalid_argument with the key.
StreamState streamState(const GpmfSensor& sensor, const std::vector<GpmfRecord>& stream);

/// Number of values in a sample.
template <class Sample>
constexpr size_t kValues = std::is_same_v<Sample, OrientationSample> ? 4 : 3;

/// Collects the samples of one sensor over all packets.
template <class Sample>
class GpmfStream {
public:
    explicit GpmfStream(const GpmfSensor& sensor) : sensor_(sensor) {}

    bool isIn(const std::vector<GpmfRecord>& stream) const { return find(stream) != nullptr; }

    // stream: what is in an STRM record that holds this sensor.

    /// Makes room for the samples, so that memory is taken once.
    void count(const std::vector<GpmfRecord>& stream) {
        const GpmfRecord& record = *find(stream);
        counted_ += std::min(record.count, record.data.size() / kValues<Sample>);
    }

    void add(const std::vector<GpmfRecord>& stream, const TelemetryPacket& packet) {
        StreamState state = streamState(sensor_, stream);
        hasUnit_ = hasUnit_ && state.hasUnit;
        hasAxes_ = hasAxes_ && state.toDevice;
        const GpmfRecord& record = *find(stream);
        if (record.type == 'b' || record.type == 'B') {
            throw std::invalid_argument(
                fmt::format("{}: numbers of 8 bits where sensors have 16 or more", sensor_.key));
        }
        const std::vector<double> numbers = record.numbers();
        if (record.count > 0 && numbers.size() != kValues<Sample> * record.count) {
            throw std::invalid_argument(
                fmt::format("{}: {} values in a sample where {} are expected", sensor_.key,
                            numbers.size() / record.count, kValues<Sample>));
        }
        clock_.add(packet.time, packet.duration, record.count, state.samplesSoFar);
        samples_.reserve(counted_);
        for (size_t i = 0; i + kValues<Sample> <= numbers.size(); i += kValues<Sample>) {
            samples_.push_back(sampleOf(state, numbers.data() + i));
        }
    }

    /// The samples with their times; they are gone then.
    std::vector<Sample> takeSamples() {
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

    Sample sampleOf(const StreamState& state, const double* numbers) const {
        std::array<double, kValues<Sample>> value;
        for (size_t i = 0; i < value.size(); ++i) {
            const auto& divisors = state.divisors;
            value[i] = numbers[i] * (state.unit / divisors[divisors.size() == 1 ? 0 : i % 3]);
        }
        if constexpr (std::is_same_v<Sample, OrientationSample>) {
            const double length = std::hypot(std::hypot(value[0], value[1], value[2]), value[3]);
            if (!(length >= 0.5 && length <= 2.0)) {
                throw std::invalid_argument(fmt::format("{}: is no rotation", sensor_.key));
            }
            return {0.0, value[0] / length, value[1] / length, value[2] / length,
                    value[3] / length};
        } else {
            if (state.toDevice) value = times(*state.toDevice, value);
            if (!std::all_of(value.begin(), value.end(),
                             [](double v) { return std::isfinite(v); })) {
                throw std::invalid_argument(
                    fmt::format("{}: holds a value that is not finite", sensor_.key));
            }
            return {0.0, value};
        }
    }

    const GpmfSensor& sensor_;
    PacketClock clock_;
    std::vector<Sample> samples_;  // without times
    size_t counted_ = 0;
    bool hasUnit_ = true;
    bool hasAxes_ = true;
};

}  // namespace framehold
