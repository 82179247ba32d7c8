#include "common/interruption.h"
#include "common/text_fields.h"
#include "motion/formats/byte_reader.h"
#include "motion/formats/telemetry_formats.h"

#include <cmath>
#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

enum CammType { kOrientation = 0, kExposure = 1, kRate = 2, kAcceleration = 3, kTypes = 8 };

/// Bytes that follow the type.
constexpr size_t kSizes[kTypes] = {12, 8, 12, 12, 12, 24, 56, 12};

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

void addReading(uint16_t type, double time, ByteReader bytes, MotionLog& log) {
    if (type == kOrientation) log.orientations.push_back(fromAngleAxis(time, vectorOf(bytes)));
    if (type == kRate) log.rates.push_back({time, vectorOf(bytes)});
    if (type == kAcceleration) log.gravity.push_back({time, vectorOf(bytes)});
    if (type == kExposure) {
        constexpr double kNanosecond = 1e-9;
        bytes.number<int32_t>();  // exposure time
        log.readoutTime = std::abs(*bytes.number<int32_t>() * kNanosecond);
    }
}

/// A packet may hold several readings.
void addPacket(const TelemetryPacket& packet, MotionLog& log) {
    ByteReader reader(packet.bytes, ByteOrder::kLittleEndian);
    while (reader.left() > 0) {
        reader.number<uint16_t>();  // reserved
        const auto type = reader.number<uint16_t>();
        if (!type) throw std::invalid_argument("ends before its type");
        if (*type >= kTypes) {
            throw std::invalid_argument(fmt::format("type {} is not one of 0 to 7", *type));
        }
        const auto data = reader.take(kSizes[*type]);
        if (!data) {
            throw std::invalid_argument(fmt::format("type {}: {} bytes where {} are expected",
                                                    *type, reader.left(), kSizes[*type]));
        }
        try {
            addReading(*type, packet.time, {*data, ByteOrder::kLittleEndian}, log);
        } catch (const std::invalid_argument& error) {
            throw std::invalid_argument(fmt::format("type {}: {}", *type, error.what()));
        }
    }
}

}  // namespace

MotionLog parseCamm(const std::string& name, const std::vector<TelemetryPacket>& packets) {
    MotionLog log;
    for (size_t i = 0; i < packets.size(); ++i) {
        throwIfInterrupted();
        try {
            addPacket(packets[i], log);
        } catch (const std::invalid_argument& error) {
            throw FileError(name, 0, fmt::format("CAMM packet {}: {}", i + 1, error.what()));
        }
    }
    if (log.rates.empty() && log.orientations.empty()) {
        throw FileError(name, 0, "its CAMM telemetry has no packets of type 0 or 2");
    }
    log.format = "CAMM";
    log.detectedBy = "the type of the telemetry track";
    log.sortByTime();
    return log;
}

}  // namespace framehold
