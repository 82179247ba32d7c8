#include "common/interruption.h"
#include "common/text_fields.h"
#include "motion/formats/byte_reader.h"
#include "motion/formats/telemetry_formats.h"

#include <cmath>

#include <fmt/format.h>

namespace framehold {

MotionLog parseMett(const std::string& name, const std::vector<TelemetryPacket>& packets) {
    constexpr size_t kReading = 3 * sizeof(float);
    MotionLog log;
    for (size_t i = 0; i < packets.size(); ++i) {
        throwIfInterrupted();
        const TelemetryPacket& packet = packets[i];
        const auto fail = [&](const std::string& what) {
            throw FileError(name, 0, fmt::format("telemetry packet {}: {}", i + 1, what));
        };
        const size_t readings = packet.bytes.size() / kReading;
        if (readings == 0 || packet.bytes.size() % kReading != 0) {
            fail(fmt::format("{} bytes where {} or a multiple are expected", packet.bytes.size(),
                             kReading));
        }
        const double step = packet.duration / static_cast<double>(readings);
        ByteReader bytes(packet.bytes, ByteOrder::kBigEndian);
        for (size_t reading = 0; reading < readings; ++reading) {
            MotionSample sample{packet.time + step * static_cast<double>(reading), {}};
            for (double& v : sample.value) {
                v = *bytes.number<float>();
                if (!std::isfinite(v)) fail("holds a value that is not finite");
            }
            (packet.isAcceleration ? log.gravity : log.rates).push_back(sample);
        }
    }
    if (log.rates.empty()) throw FileError(name, 0, "its telemetry has no application/gyro track");
    log.format = "mett";
    log.detectedBy = "the types of the metadata tracks, application/gyro and application/accel";
    log.sortByTime();
    return log;
}

}  // namespace framehold
