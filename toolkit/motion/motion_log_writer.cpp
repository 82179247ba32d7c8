#include "motion/motion_log_writer.h"

#include "common/library_constants.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <optional>

#include <fmt/format.h>
#include <fmt/ostream.h>

namespace framehold {

namespace {

/// Number with the digits that were there before an exact unit was multiplied in: 15, if these are
/// off by no more than the last bit; else all that it takes to read the same number back.
std::string numberText(double value) {
    constexpr int kDigits = 15;
    std::string text = fmt::format("{:.{}g}", value, kDigits);
    const double read = std::strtod(text.c_str(), nullptr);
    const bool isClose = read == value || read == std::nextafter(value, read);
    return isClose ? text : fmt::format("{}", value);
}

/// Seconds. Dates keep every bit: their last one is a quarter of a microsecond.
std::string timeText(double seconds) {
    constexpr double kLargestShort = 1e6;
    return std::abs(seconds) < kLargestShort ? numberText(seconds) : fmt::format("{}", seconds);
}

/// Appends readings to rows.
class Readings {
public:
    /// Telemetry holds 32-bit floats: their digits are fewer, and those that were there before.
    explicit Readings(const MotionLog& log)
        : areFloats_(log.format == "CAMM" || log.format == "mett") {}

    void append(fmt::memory_buffer& row, const Vec3& values) const {
        for (const double v : values) {
            if (areFloats_) {
                fmt::format_to(std::back_inserter(row), ",{}", static_cast<float>(v));
            } else {
                fmt::format_to(std::back_inserter(row), ",{}", numberText(v));
            }
        }
    }

private:
    bool areFloats_;
};

/// Line "frame_readout_time,MILLISECONDS", rounded where the digits of a number end; empty if the log
/// has none.
std::string readoutLine(const MotionLog& log) {
    return log.readoutTime ? fmt::format("frame_readout_time,{:.12g}\n", 1000.0 * *log.readoutTime)
                           : std::string();
}

/// Gravity at any time, between the samples around it. Times come in order.
class GravityAtTime {
public:
    explicit GravityAtTime(const std::vector<MotionSample>& samples) : samples_(samples) {}

    Vec3 at(double time) {
        while (next_ < samples_.size() && samples_[next_].time < time) ++next_;
        if (next_ == samples_.size()) return samples_.back().value;
        const MotionSample& after = samples_[next_];
        if (next_ == 0 || after.time == time) return after.value;
        const MotionSample& before = samples_[next_ - 1];
        const double share = (time - before.time) / (after.time - before.time);
        Vec3 value;
        for (size_t i = 0; i < 3; ++i) {
            value[i] = before.value[i] + share * (after.value[i] - before.value[i]);
        }
        return value;
    }

private:
    const std::vector<MotionSample>& samples_;
    size_t next_ = 0;
};

void write(std::ostream& out, fmt::memory_buffer& row) {
    row.push_back('\n');
    out.write(row.data(), static_cast<std::streamsize>(row.size()));
    row.clear();
}

void writeGcsv(const MotionLog& log, std::ostream& out, const std::function<void()>& advance) {
    // Keys that are written anew, or stand for columns that are not.
    constexpr std::string_view kOwn[] = {
        "version", "orientation", "frame_readout_time", "tscale", "gscale", "ascale", "mscale"};
    out << "CAMERA IMU LOG\nversion,1.3\n";
    bool hasId = false;
    for (const auto& [key, value] : log.headers) {
        if (std::find(std::begin(kOwn), std::end(kOwn), key) != std::end(kOwn)) continue;
        hasId = hasId || key == "id";
        fmt::print(out, "{},{}\n", key, value);
    }
    if (!hasId) out << "id,framehold\n";
    fmt::print(out, "orientation,{}\n", log.orientation.letters());
    out << readoutLine(log);
    // Chosen so that the product with 9.81 is 1: gravity is then in m/s^2 to its last bit.
    double gravityScale = 1.0 / kStandardGravity;
    while (gravityScale * kStandardGravity < 1.0) gravityScale = std::nextafter(gravityScale, 1.0);
    while (gravityScale * kStandardGravity > 1.0) gravityScale = std::nextafter(gravityScale, 0.0);
    fmt::print(out, "tscale,1\ngscale,1\n");
    if (!log.gravity.empty()) fmt::print(out, "ascale,{}\n", gravityScale);
    fmt::print(out, "t,gx,gy,gz{}\n", log.gravity.empty() ? "" : ",ax,ay,az");
    const Readings numbers(log);
    GravityAtTime gravity(log.gravity);
    fmt::memory_buffer row;
    for (const MotionSample& rate : log.angularRates()) {
        fmt::format_to(std::back_inserter(row), "{}", timeText(rate.time));
        numbers.append(row, rate.value);
        if (!log.gravity.empty()) numbers.append(row, gravity.at(rate.time));
        write(out, row);
        advance();
    }
}

/// Rows of a table in which each sensor's readings have cells of their own.
class TableRows {
public:
    explicit TableRows(const MotionLog& log) : log_(log), numbers_(log) {}

    /// Makes the next row, of all readings at its time; false at the end.
    bool next(fmt::memory_buffer& row) {
        double time = HUGE_VAL;
        const auto look = [&time](const auto& samples, size_t at) {
            if (at < samples.size()) time = std::min(time, samples[at].time);
        };
        look(log_.rates, rate_);
        look(log_.gravity, gravity_);
        look(log_.orientations, orientation_);
        if (time == HUGE_VAL) return false;
        fmt::format_to(std::back_inserter(row), "{}", timeText(time));
        const auto add = [&](const auto& samples, size_t& at, const char* none) {
            if (samples.empty()) return;
            if (at < samples.size() && samples[at].time == time) {
                append(row, samples[at++]);
            } else {
                row.append(none, none + std::strlen(none));
            }
        };
        add(log_.rates, rate_, ",,,");
        add(log_.gravity, gravity_, ",,,");
        add(log_.orientations, orientation_, ",,,,");
        return true;
    }

private:
    void append(fmt::memory_buffer& row, const MotionSample& sample) const {
        numbers_.append(row, sample.value);
    }

    static void append(fmt::memory_buffer& row, const OrientationSample& s) {
        fmt::format_to(std::back_inserter(row), ",{},{},{},{}", s.x, s.y, s.z, s.w);
    }

    const MotionLog& log_;
    Readings numbers_;
    size_t rate_ = 0;
    size_t gravity_ = 0;
    size_t orientation_ = 0;
};

void writeCsv(const MotionLog& log, std::ostream& out, const std::function<void()>& advance) {
    if (log.orientation.letters() != "XYZ") {
        fmt::print(out, "# orientation,{}\n", log.orientation.letters());
    }
    if (log.readoutTime) out << "# " << readoutLine(log);
    out << "time (s)";
    for (const auto& [isThere, sensor, unit] :
         {std::tuple(!log.rates.empty(), "gyroscope", "rad/s"),
          std::tuple(!log.gravity.empty(), "accelerometer", "m/s^2")}) {
        for (const char axis : {'x', 'y', 'z'}) {
            if (isThere) fmt::print(out, ",{} {} ({})", sensor, axis, unit);
        }
    }
    if (!log.orientations.empty()) out << ",quaternion x,quaternion y,quaternion z,quaternion w";
    out << '\n';
    TableRows rows(log);
    fmt::memory_buffer row;
    while (rows.next(row)) {
        write(out, row);
        advance();
    }
}

/// Appends the low bytes of a number, the lowest first.
void appendBytes(std::string& bytes, uint32_t bits, int count) {
    for (int i = 0; i < count; ++i) bytes += static_cast<char>(bits >> 8 * i & 0xFF);
}

enum : uint32_t { kOrientation = 0, kExposure = 1, kRate = 2, kAcceleration = 3 };

std::string cammReading(uint32_t type, const Vec3& values) {
    std::string bytes;
    appendBytes(bytes, 0, 2);
    appendBytes(bytes, type, 2);
    for (const double value : values) {
        const auto number = static_cast<float>(value);
        uint32_t bits;
        std::memcpy(&bits, &number, sizeof bits);
        appendBytes(bytes, bits, 4);
    }
    return bytes;
}

/// The packet of type 1, with 0 for what is not known or does not fit.
std::string cammExposure(std::optional<double> exposure, std::optional<double> readout) {
    std::string bytes;
    appendBytes(bytes, 0, 2);
    appendBytes(bytes, kExposure, 2);
    for (const std::optional<double>& seconds : {exposure, readout}) {
        // As 0 is for what is not known, none at all is written as the least that there is.
        const double nanoseconds = seconds ? std::max(1.0, std::round(1e9 * *seconds)) : 0.0;
        const bool fits = nanoseconds <= std::numeric_limits<uint32_t>::max();
        appendBytes(bytes, fits ? static_cast<uint32_t>(nanoseconds) : 0, 4);
    }
    return bytes;
}

/// The product of the rotation's unit axis and its angle in rad.
Vec3 angleAxis(const OrientationSample& s) {
    const double sine = std::hypot(s.x, s.y, s.z);
    // angle / sin(angle / 2), whose limit at 0 is 2.
    const double scale = sine > 1e-9 ? 2.0 * std::atan2(sine, s.w) / sine : 2.0;
    return {s.x * scale, s.y * scale, s.z * scale};
}

}  // namespace

void writeTextLog(const MotionLog& log, LogFormat format, std::ostream& out,
                  const std::function<void()>& advance) {
    if (format == LogFormat::kGcsv) {
        writeGcsv(log, out, advance);
    } else {
        writeCsv(log, out, advance);
    }
}

std::vector<TelemetryPacket> cammPackets(const MotionLog& log, double timeOffset) {
    const auto isEarlier = [](const auto& a, const auto& b) { return a.time < b.time; };
    std::vector<TelemetryPacket> packets;
    packets.reserve(log.rates.size() + log.gravity.size() + log.orientations.size() +
                    log.frames.size() + 1);
    const auto add = [&](double time, std::string bytes) {
        packets.push_back({time - timeOffset, 0.0, std::move(bytes)});
    };
    for (const FrameMetadata& frame : log.frames) {
        if (frame.time) add(*frame.time, cammExposure(frame.exposure, frame.readout));
    }
    for (const MotionSample& s : log.rates) add(s.time, cammReading(kRate, s.value));
    for (const MotionSample& s : log.gravity) add(s.time, cammReading(kAcceleration, s.value));
    for (const OrientationSample& s : log.orientations) {
        add(s.time, cammReading(kOrientation, angleAxis(s)));
    }
    if (log.frames.empty() && log.readoutTime && !packets.empty()) {
        const auto first = std::min_element(packets.begin(), packets.end(), isEarlier);
        packets.insert(packets.begin(), {first->time, 0.0, cammExposure({}, log.readoutTime)});
    }
    std::stable_sort(packets.begin(), packets.end(), isEarlier);
    return packets;
}

std::vector<std::string> lossesOf(const MotionLog& log, LogFormat format) {
    std::vector<std::string> losses;
    if (format == LogFormat::kGcsv && !log.orientations.empty()) {
        losses.emplace_back(
            log.rates.empty()
                ? "the orientations are written as the rates between them: .gcsv has none"
                : "the orientations are left out: .gcsv has none");
    }
    if (!log.lensShifts.empty()) losses.emplace_back("the lens shifts are left out");
    const auto areLeftOut = [format](const FrameMetadata& frame) {
        return frame.focalLength || (frame.exposure && (format != LogFormat::kCamm || !frame.time));
    };
    if (std::any_of(log.frames.begin(), log.frames.end(), areLeftOut)) {
        losses.emplace_back(format == LogFormat::kCamm
                                ? "the focal lengths of the frames are left out"
                                : "the exposures and focal lengths of the frames are left out");
    }
    return losses;
}

}  // namespace framehold
