#pragma once

#include "media/libav.h"

#include <optional>
#include <string>

extern "C" {
#include <libavutil/mastering_display_metadata.h>
}

namespace framehold {

/// Display that a video was made for, and how bright its pictures become.
struct HdrMetadata {
    std::optional<AVMasteringDisplayMetadata> display;
    std::optional<AVContentLightMetadata> light;

    void addMissing(const HdrMetadata& other) {
        if (!display) display = other.display;
        if (!light) light = other.light;
    }
};

/// Metadata of a stream; where the container has none, that of one of its frames (may be null).
HdrMetadata hdrMetadataOf(const AVStream& stream, const AVFrame* frame);

/// Gives a stream the metadata that it does not have. Throws std::bad_alloc.
void addHdrMetadata(const HdrMetadata& metadata, AVStream& stream);

/// Parameters of the encoder libx265 or libx264, to be added to those of other things: each begins
/// with a colon. Empty for other encoders.
std::string hdrParameters(const HdrMetadata& metadata, const std::string& encoder);

/// True for transfer functions whose pictures show steps in 8 bits: PQ and HLG.
bool isHdr(AVColorTransferCharacteristic transfer);

}  // namespace framehold
