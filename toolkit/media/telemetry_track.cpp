#include "media/telemetry_track.h"

#include "common/interruption.h"
#include "media/libav.h"

namespace framehold {

namespace {

std::optional<TelemetryKind> kindOf(const AVStream& stream) {
    switch (stream.codecpar->codec_tag) {
        case MKTAG('g', 'p', 'm', 'd'):
            return TelemetryKind::kGpmf;
        case MKTAG('c', 'a', 'm', 'm'):
            return TelemetryKind::kCamm;
        default:
            return std::nullopt;
    }
}

TelemetryPacket copyOf(const AVPacket& packet, AVRational timeBase) {
    const int64_t stamp = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    return {static_cast<double>(stamp) * av_q2d(timeBase),
            static_cast<double>(packet.duration) * av_q2d(timeBase),
            {reinterpret_cast<const char*>(packet.data), static_cast<size_t>(packet.size)}};
}

}  // namespace

std::optional<TelemetryTrack> readTelemetryTrack(const std::string& path) {
    const AvInput format = openInput(path);
    const AVStream* track = nullptr;
    for (unsigned i = 0; i < format->nb_streams; ++i) {
        AVStream* stream = format->streams[i];
        if (track == nullptr && kindOf(*stream)) {
            track = stream;
        } else {
            // Nothing of the pictures is read then.
            stream->discard = AVDISCARD_ALL;
        }
    }
    if (track == nullptr) return std::nullopt;
    TelemetryTrack telemetry{*kindOf(*track), {}};
    int64_t bytesLeft = avio_size(format->pb);
    const AvPtr<AVPacket> packet = makePacket();
    for (;;) {
        throwIfInterrupted();
        const int code = av_read_frame(format.get(), packet.get());
        if (code == AVERROR_EOF) return telemetry;
        if (code < 0) throw MediaError(path, "cannot be read on", code);
        if (packet->stream_index == track->index && packet->size > 0) {
            bytesLeft -= packet->size;
            if (bytesLeft < 0) throw MediaError(path, "its telemetry is larger than the file");
            telemetry.packets.push_back(copyOf(*packet, track->time_base));
        }
        av_packet_unref(packet.get());
    }
}

}  // namespace framehold
