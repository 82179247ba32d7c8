// Any packets into the readers of telemetry in video files. Each packet of an input is its time and
// its size, in a byte each, and its bytes.
#include "checked_log.h"
#include "common/text_fields.h"
#include "motion/formats/telemetry_formats.h"

#include <algorithm>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr double kTick = 0.1;
    std::vector<framehold::TelemetryPacket> packets;
    for (size_t at = 0; at + 2 <= size;) {
        const size_t length = std::min<size_t>(data[at + 1], size - at - 2);
        packets.push_back({kTick * data[at], kTick,
                           std::string(reinterpret_cast<const char*>(data) + at + 2, length)});
        at += 2 + length;
    }
    for (const auto parse : {framehold::parseGpmf, framehold::parseCamm, framehold::parseMett}) {
        try {
            zpr_fuzz::useLog(parse("video", packets));
        } catch (const framehold::FileError&) {
        }
    }
    return 0;
}
