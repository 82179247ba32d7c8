#include "media/hdr_metadata.h"

#include <cmath>
#include <cstring>

#include <fmt/format.h>

namespace framehold {

namespace {

/// Side data of a stream or, if it has none, of a frame.
template <class Record>
std::optional<Record> find(const AVStream& stream, AVPacketSideDataType ofStream,
                           const AVFrame* frame, AVFrameSideDataType ofFrame) {
    size_t size = 0;
    const uint8_t* data = av_stream_get_side_data(&stream, ofStream, &size);
    if (data == nullptr && frame != nullptr) {
        const AVFrameSideData* side = av_frame_get_side_data(frame, ofFrame);
        if (side == nullptr) return std::nullopt;
        data = side->data;
        size = side->size;
    }
    if (data == nullptr || size < sizeof(Record)) return std::nullopt;
    Record record;
    std::memcpy(&record, data, sizeof record);
    return record;
}

template <class Record>
void add(const std::optional<Record>& record, AVPacketSideDataType type, AVStream& stream) {
    if (!record || av_stream_get_side_data(&stream, type, nullptr) != nullptr) return;
    uint8_t* data = av_stream_new_side_data(&stream, type, sizeof(Record));
    if (data == nullptr) throw std::bad_alloc();
    std::memcpy(data, &*record, sizeof(Record));
}

/// Display in the encoders' units: chromaticities in 1/50000, luminances in 1/10000 cd/m2.
std::string displayText(const AVMasteringDisplayMetadata& d) {
    const auto in = [](AVRational value, double unit) {
        return std::llround(av_q2d(value) * unit);
    };
    const auto point = [&](const AVRational* xy) {
        return fmt::format("({},{})", in(xy[0], 50000.0), in(xy[1], 50000.0));
    };
    return "G" + point(d.display_primaries[1]) + "B" + point(d.display_primaries[2]) + "R" +
           point(d.display_primaries[0]) + "WP" + point(d.white_point) +
           fmt::format("L({},{})", in(d.max_luminance, 10000.0), in(d.min_luminance, 10000.0));
}

}  // namespace

HdrMetadata hdrMetadataOf(const AVStream& stream, const AVFrame* frame) {
    return {find<AVMasteringDisplayMetadata>(stream, AV_PKT_DATA_MASTERING_DISPLAY_METADATA, frame,
                                             AV_FRAME_DATA_MASTERING_DISPLAY_METADATA),
            find<AVContentLightMetadata>(stream, AV_PKT_DATA_CONTENT_LIGHT_LEVEL, frame,
                                         AV_FRAME_DATA_CONTENT_LIGHT_LEVEL)};
}

void addHdrMetadata(const HdrMetadata& metadata, AVStream& stream) {
    add(metadata.display, AV_PKT_DATA_MASTERING_DISPLAY_METADATA, stream);
    add(metadata.light, AV_PKT_DATA_CONTENT_LIGHT_LEVEL, stream);
}

std::string hdrParameters(const HdrMetadata& metadata, const std::string& encoder) {
    const bool isX265 = encoder == "libx265";
    if (!isX265 && encoder != "libx264") return "";
    std::string text;
    const auto& display = metadata.display;
    if (display && display->has_primaries != 0 && display->has_luminance != 0) {
        text += isX265 ? ":master-display=" : ":mastering-display=";
        text += displayText(*display);
    }
    if (metadata.light) {
        text += fmt::format("{}={},{}", isX265 ? ":max-cll" : ":cll", metadata.light->MaxCLL,
                            metadata.light->MaxFALL);
    }
    return text;
}

bool isHdr(AVColorTransferCharacteristic transfer) {
    return transfer == AVCOL_TRC_SMPTE2084 || transfer == AVCOL_TRC_ARIB_STD_B67;
}

}  // namespace framehold
