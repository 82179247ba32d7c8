// Any text as a clip.json and, behind the first zero byte, the frames.csv beside it.
#include "common/text_fields.h"
#include "draw.h"
#include "motion/clip_metadata.h"
#include "support/temporary_folder.h"

#include <algorithm>
#include <cmath>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const zpr_test::TemporaryFolder folder;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const size_t json = std::min(text.find('\0'), size);
    folder.write("frames.csv", text.substr(std::min(json + 1, size)));
    try {
        const auto metadata =
            framehold::readClipMetadata(folder.write("clip.json", text.substr(0, json)));
        const auto isFinite = [](double v) { return std::isfinite(v); };
        zpr_fuzz::require(!metadata.width || *metadata.width >= 2, "a width is one");
        for (const auto& fact : {metadata.focalLength, metadata.readoutTime, metadata.timeOffset}) {
            zpr_fuzz::require(isFinite(fact.value_or(1.0)), "metadata is finite");
        }
        zpr_fuzz::require(
            std::all_of(metadata.frameTimes.begin(), metadata.frameTimes.end(), isFinite),
            "times are finite");
    } catch (const framehold::FileError&) {
    }
    return 0;
}
