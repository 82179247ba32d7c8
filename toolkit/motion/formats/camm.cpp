#include "common/interruption.h"
#include "common/text_fields.h"
#include "motion/formats/byte_reader.h"
#include "motion/formats/telemetry_formats.h"

#include <array>
#include <cmath>
#include <stdexcept>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace framehold {

namespace {

enum CammType { kOrientation = 0, kExposure = 1, kRate = 2, kAcceleration = 3, kTypes = 8 };

struct CammKind {
    size_t size;                 // bytes that follow the type
    const char* name = nullptr;  // of what is passed over
};

constexpr CammKind kKinds[kTypes] = {{12},
                                     {8},
                                     {12},
                                     {12},
                                     {12, "positions"},
                                     {24, "places by satellite"},
                                     {56, "places by satellite with their accuracy"},
                                     {12, "magnetic fields"}};

/// values: the product of a unit axis and an angle in rad.
OrientationSample fromAngleAxis(double time, const Vec3& v) {
    const double angle = std::hypot(v[0], v[1], v[2]);
    // sin(angle / 2) / angle, whose limit at 0 is 1/2.
    const double scale = angle > 1e-9 ? std::sin(angle / 2.0) / angle : 0.5;
    return {time, std::cos(angle / 2.0), v[0] * scale, v[1] * scale, v[2] * scale};
}

/// The three numbers of a packet of which there are enough bytes.
Vec3 vectorOf(ByteReader& bytes) {
    Vec3 vector;
    for (double& v : vector) {
        v = *bytes.number<float>();
        if (!std::isfinite(v)) throw std::invalid_argument("holds a value that is not finite");
    }
    return vector;
}

/// Reads the exposure of one frame, and its readout.
FrameMetadata frameOf(double time, ByteReader& bytes) {
    constexpr double kNanosecond = 1e-9;
    FrameMetadata frame;
    frame.time = time;
    // Some cameras write the readout with its direction, as a sign.
    const double exposure = *bytes.number<int32_t>() * kNanosecond;
    const double readout = std::abs(*bytes.number<int32_t>() * kNanosecond);
    if (exposure > 0.0) frame.exposure = exposure;
    if (readout > 0.0) frame.readout = readout;
    return frame;
}

void addReading(uint16_t type, double time, ByteReader bytes, MotionLog& log) {
    if (type == kOrientation) log.orientations.push_back(fromAngleAxis(time, vectorOf(bytes)));
    if (type == kRate) log.rates.push_back({time, vectorOf(bytes)});
    if (type == kAcceleration) log.gravity.push_back({time, vectorOf(bytes)});
    if (type == kExposure) {
        log.frames.push_back(frameOf(time, bytes));
        if (log.frames.back().readout) log.readoutTime = log.frames.back().readout;
    }
}

/// Hands the readings of a packet, which may be several, to `use`.
template <class Use>
void readPacket(const TelemetryPacket& packet, Use use) {
    ByteReader reader(packet.bytes, ByteOrder::kLittleEndian);
    while (reader.left() > 0) {
        reader.number<uint16_t>();  // reserved
        const auto type = reader.number<uint16_t>();
        if (!type) throw std::invalid_argument("ends before its type");
        if (*type >= kTypes) {
            throw std::invalid_argument(fmt::format("type {} is not one of 0 to 7", *type));
        }
        const auto data = reader.take(kKinds[*type].size);
        if (!data) {
            throw std::invalid_argument(fmt::format("type {}: {} bytes where {} are expected",
                                                    *type, reader.left(), kKinds[*type].size));
        }
        try {
            use(*type, ByteReader(*data, ByteOrder::kLittleEndian));
        } catch (const std::invalid_argument& error) {
            throw std::invalid_argument(fmt::format("type {}: {}", *type, error.what()));
        }
    }
}

/// Number of readings of each type.
using Counts = std::array<size_t, kTypes>;

template <class Use>
void readPackets(const std::string& name, const std::vector<TelemetryPacket>& packets, Use use) {
    for (size_t i = 0; i < packets.size(); ++i) {
        throwIfInterrupted();
        try {
            readPacket(packets[i], [&](uint16_t type, const ByteReader& bytes) {
                use(type, packets[i].time, bytes);
            });
        } catch (const std::invalid_argument& error) {
            throw FileError(name, 0, fmt::format("CAMM packet {}: {}", i + 1, error.what()));
        }
    }
}

void addNotes(const Counts& counts, MotionLog& log) {
    std::vector<std::string> passedOver;
    for (size_t type = 0; type < kTypes; ++type) {
        if (counts[type] == 0 || kKinds[type].name == nullptr) continue;
        passedOver.push_back(fmt::format("{} {} (type {})", counts[type], kKinds[type].name, type));
    }
    if (!passedOver.empty()) {
        log.notes.push_back(
            fmt::format("CAMM: {} are there and not used", fmt::join(passedOver, ", ")));
    }
}

}  // namespace

MotionLog parseCamm(const std::string& name, const std::vector<TelemetryPacket>& packets) {
    Counts counts{};
    readPackets(name, packets, [&](uint16_t type, double, const ByteReader&) { ++counts[type]; });
    const bool isUsable = counts[kRate] > 0 || counts[kOrientation] > 0;
    MotionLog log;
    log.orientations.reserve(counts[kOrientation]);
    if (isUsable) log.frames.reserve(counts[kExposure]);
    log.rates.reserve(counts[kRate]);
    log.gravity.reserve(counts[kAcceleration]);
    readPackets(name, packets, [&](uint16_t type, double time, const ByteReader& bytes) {
        if (isUsable || type != kExposure) addReading(type, time, bytes, log);
    });
    if (!isUsable) {
        throw FileError(name, 0, "its CAMM telemetry has no packets of type 0 or 2");
    }
    addNotes(counts, log);
    log.format = "CAMM";
    log.detectedBy = "the type of the telemetry track";
    log.sortByTime();
    return log;
}

}  // namespace framehold
