#include "common/angles.h"
#include "common/interruption.h"
#include "common/library_constants.h"
#include "common/text_fields.h"
#include "motion/formats/gpmf_stream.h"
#include "motion/formats/telemetry_formats.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <fmt/format.h>

#include <Eigen/Geometry>

namespace framehold {

namespace {

const GpmfSensor kGyroscope = {"GYRO", {{"rad/s", 1.0}, {"deg/s", toRadians(1.0)}}};
const GpmfSensor kAccelerometer = {"ACCL",
                                   {{"m/s\xB2", 1.0},
                                    {"m/s\xC2\xB2", 1.0},
                                    {"m/s2", 1.0},
                                    {"m/s^2", 1.0},
                                    {"g", kStandardGravity}}};

// Of the camera's own filter, at the rate of the frames.
const GpmfSensor kCameraOrientation = {"CORI", {}, false};
const GpmfSensor kImageOrientation = {"IORI", {}, false};
const GpmfSensor kGravityVector = {"GRAV", {}, false};

/// From X, Y, Z of the camera to Z, X, Y, as rates and gravity are given.
Vec3 inOrder(const Vec3& v) { return {v[2], v[0], v[1]}; }

Eigen::Quaterniond inOrder(const OrientationSample& q) { return {q.w, q.z, q.x, q.y}; }

Eigen::Vector3d vectorOf(const Vec3& v) { return {v[0], v[1], v[2]}; }

/// Direction that is up, in the axes that the camera's orientations turn into: by its gravity vector,
/// which points down; without one, the picture's top at the start.
Eigen::Vector3d upOf(const std::vector<OrientationSample>& orientations,
                     const std::vector<MotionSample>& gravity) {
    Eigen::Vector3d up = Eigen::Vector3d::Zero();
    for (size_t i = 0; i < std::min(orientations.size(), gravity.size()); ++i) {
        up += inOrder(orientations[i]) * vectorOf(inOrder(gravity[i].value));
    }
    if (up.norm() > 0.0) return -up.normalized();
    return inOrder(orientations.front()) * Eigen::Vector3d::UnitX();
}

void toWorld(std::vector<OrientationSample>& orientations, const Eigen::Vector3d& up) {
    const auto upright = Eigen::Quaterniond::FromTwoVectors(up, Eigen::Vector3d::UnitZ());
    for (OrientationSample& sample : orientations) {
        const Eigen::Quaterniond q = (upright * inOrder(sample)).normalized();
        sample = {sample.time, q.w(), q.x(), q.y(), q.z()};
    }
}

/// Largest angle of rotations, in rad.
double largestAngle(const std::vector<OrientationSample>& rotations) {
    double largest = 0.0;
    for (const OrientationSample& q : rotations) {
        largest = std::max(largest, 2.0 * std::acos(std::min(1.0, std::abs(q.w))));
    }
    return largest;
}

/// Takes the streams of the first device that has each sensor.
class GpmfParser {
public:
    enum class Pass { kCount, kAdd };

    void read(const TelemetryPacket& packet, Pass pass) {
        throwIfInterrupted();
        size_t device = 0;
        for (const GpmfRecord& record : gpmfRecords(packet.bytes)) {
            if (record.key != "DEVC") continue;
            for (const GpmfRecord& inside : gpmfRecords(record.data)) {
                if (inside.key != "STRM") continue;
                const Stream stream{device, gpmfRecords(inside.data), packet};
                use(gyroscope_, stream, pass);
                use(accelerometer_, stream, pass);
                use(cameraOrientation_, stream, pass);
                use(imageOrientation_, stream, pass);
                use(gravityVector_, stream, pass);
            }
            ++device;
        }
    }

    MotionLog finish() {
        MotionLog log;
        gyroscope_.stream.addNotes(log);
        accelerometer_.stream.addNotes(log);
        log.rates = gyroscope_.stream.takeSamples();
        log.gravity = accelerometer_.stream.takeSamples();
        addFiltered(log);
        return log;
    }

private:
    template <class Sample>
    struct Source {
        explicit Source(const GpmfSensor& sensor) : stream(sensor), isOptional(!sensor.hasUnit) {}

        GpmfStream<Sample> stream;
        bool isOptional;  // left out where it is broken
        std::optional<size_t> device;
        std::string problem;
    };

    struct Stream {
        size_t device;
        std::vector<GpmfRecord> records;
        const TelemetryPacket& packet;
    };

    template <class Sample>
    static void use(Source<Sample>& source, const Stream& stream, Pass pass) {
        if (!source.stream.isIn(stream.records)) return;
        if (!source.device) source.device = stream.device;
        if (source.device != stream.device || !source.problem.empty()) return;
        try {
            if (pass == Pass::kCount) {
                source.stream.count(stream.records);
            } else {
                source.stream.add(stream.records, stream.packet);
            }
        } catch (const std::invalid_argument& error) {
            if (!source.isOptional) throw;
            source.problem = error.what();
        }
    }

    /// Samples of a stream that need not be there; none if they are broken.
    template <class Sample>
    static std::vector<Sample> takeOptional(Source<Sample>& source, MotionLog& log) {
        if (source.problem.empty()) return source.stream.takeSamples();
        log.notes.push_back("not used: " + source.problem);
        return {};
    }

    /// Uses what the camera's own filter says, where there are no readings.
    void addFiltered(MotionLog& log) {
        constexpr double kLargestAngle = 0.01;
        auto orientations = takeOptional(cameraOrientation_, log);
        auto gravity = takeOptional(gravityVector_, log);
        if (!log.rates.empty() && !orientations.empty()) {
            log.notes.push_back("CORI: the camera's own orientations are not used beside GYRO");
        } else if (!orientations.empty()) {
            toWorld(orientations, upOf(orientations, gravity));
            log.notes.push_back(
                "GYRO is missing: CORI, the camera's own orientations, at the rate of the frames, "
                "is "
                "taken for rotations of X, Y, Z to those at the start");
            log.orientations = std::move(orientations);
        }
        if (log.gravity.empty() && !gravity.empty()) {
            log.notes.push_back("ACCL is missing: GRAV is taken for the direction that is down");
            log.gravity = std::move(gravity);
            for (MotionSample& sample : log.gravity) {
                sample.value = inOrder(sample.value);
                for (double& v : sample.value) v *= -kStandardGravity;
            }
        }
        const double angle = largestAngle(takeOptional(imageOrientation_, log));
        if (angle > kLargestAngle) {
            log.notes.push_back(
                fmt::format("IORI: the camera has turned its pictures by up to {:.1f} degrees, to "
                            "stabilize them "
                            "itself: they do not move as the log says",
                            toDegrees(angle)));
        }
    }

    Source<MotionSample> gyroscope_{kGyroscope};
    Source<MotionSample> accelerometer_{kAccelerometer};
    Source<OrientationSample> cameraOrientation_{kCameraOrientation};
    Source<OrientationSample> imageOrientation_{kImageOrientation};
    Source<MotionSample> gravityVector_{kGravityVector};
};

}  // namespace

MotionLog parseGpmf(const std::string& name, const std::vector<TelemetryPacket>& packets) {
    GpmfParser parser;
    for (const auto pass : {GpmfParser::Pass::kCount, GpmfParser::Pass::kAdd}) {
        for (size_t i = 0; i < packets.size(); ++i) {
            try {
                parser.read(packets[i], pass);
            } catch (const std::invalid_argument& error) {
                throw FileError(name, 0, fmt::format("GPMF packet {}: {}", i + 1, error.what()));
            }
        }
    }
    MotionLog log = parser.finish();
    if (log.rates.empty() && log.orientations.empty()) {
        throw FileError(name, 0, "its GPMF telemetry has no GYRO samples");
    }
    log.format = "GPMF";
    log.detectedBy = "the DEVC records of the telemetry track";
    log.sortByTime();
    return log;
}

}  // namespace framehold
