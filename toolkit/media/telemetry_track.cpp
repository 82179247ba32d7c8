#include "media/telemetry_track.h"

#include "common/interruption.h"
#include "media/libav.h"
#include "media/metadata_types.h"

#include <algorithm>
#include <cstdio>

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

/// A stream that telemetry is read from.
struct Source {
    const AVStream* stream;
    bool isAcceleration = false;
    int64_t start = 0;  // seconds of its clock at the track's time 0
};

/// Takes what writeMotionTrack has put into a stream's name.
void readTrackName(Source& source, TelemetryTrack& track) {
    const auto* name = av_dict_get(source.stream->metadata, "handler_name", nullptr, 0);
    if (name == nullptr) return;
    char axes[4] = "";
    long long start = 0;
    const char* const pattern = "camera motion, axes %3[XYZxyz], start %lld s";
    if (std::sscanf(name->value, pattern, axes, &start) != 2) return;
    track.axes = axes;
    constexpr int64_t kLargest = int64_t{1} << 33;  // whose nanoseconds are a number of 64 bits
    if (start >= -kLargest && start <= kLargest) source.start = start;
}

bool hasTimedMetadata(const AVFormatContext& format) {
    return std::any_of(format.streams, format.streams + format.nb_streams, [](const AVStream* s) {
        return s->codecpar->codec_tag == MKTAG('m', 'e', 't', 't');
    });
}

/// The first stream of each sensor's timed metadata.
std::vector<Source> timedMetadata(const AVFormatContext& format, const std::string& path) {
    std::vector<Source> sources;
    const auto types = metadataTypes(path);
    for (const auto& [type, isAcceleration] :
         {std::pair{kGyroscopeMetadata, false}, std::pair{kAccelerometerMetadata, true}}) {
        for (unsigned i = 0; i < format.nb_streams; ++i) {
            const auto found = types.find(format.streams[i]->id);
            if (found == types.end() || found->second != type) continue;
            sources.push_back({format.streams[i], isAcceleration});
            break;
        }
    }
    return sources;
}

/// The streams to read. Sets what the file says of all of the track.
std::vector<Source> findSources(const AVFormatContext& format, const std::string& path,
                                TelemetryTrack& telemetry) {
    for (unsigned i = 0; i < format.nb_streams; ++i) {
        const auto kind = kindOf(*format.streams[i]);
        if (!kind) continue;
        telemetry.kind = *kind;
        Source source{format.streams[i]};
        readTrackName(source, telemetry);
        return {source};
    }
    if (!hasTimedMetadata(format)) return {};
    telemetry.kind = TelemetryKind::kMett;
    return timedMetadata(format, path);
}

/// Number of packets that the file says it has, and may have.
size_t packetsIn(const std::vector<Source>& sources, int64_t bytes) {
    constexpr int64_t kSmallestPacket = 8;
    int64_t count = 0;
    for (const Source& source : sources) count += std::max<int64_t>(source.stream->nb_frames, 0);
    return static_cast<size_t>(std::clamp<int64_t>(count, 0, bytes / kSmallestPacket));
}

TelemetryPacket copyOf(const AVPacket& packet, const Source& source) {
    const AVRational timeBase = source.stream->time_base;
    const int64_t stamp = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    const int64_t ticks =
        av_sat_add64(av_rescale(source.start, timeBase.den, 1), av_rescale(stamp, timeBase.num, 1));
    // In two parts, so that a time with few decimals is the number nearest to them.
    const double whole = static_cast<double>(ticks / timeBase.den);
    return {whole + static_cast<double>(ticks % timeBase.den) / timeBase.den,
            static_cast<double>(packet.duration) * av_q2d(timeBase),
            {reinterpret_cast<const char*>(packet.data), static_cast<size_t>(packet.size)},
            source.isAcceleration};
}

}  // namespace

std::optional<TelemetryTrack> readTelemetryTrack(const std::string& path) {
    // Looking into the streams is not needed, and would change times of readings that start together.
    AvInput format = openContainer(path);
    TelemetryTrack telemetry{TelemetryKind::kMett, {}};
    std::vector<Source> sources = findSources(*format, path, telemetry);
    if (!telemetry.axes.empty()) {
        // writeMotionTrack wrote it: what players leave out at its start is a part of the log.
        format = openContainer(path, true);
        sources = findSources(*format, path, telemetry);
    }
    if (sources.empty()) return std::nullopt;
    const auto sourceOf = [&sources](const AVStream* stream) {
        return std::find_if(sources.begin(), sources.end(),
                            [&](const Source& source) { return source.stream == stream; });
    };
    // Nothing of the pictures is read then.
    for (unsigned i = 0; i < format->nb_streams; ++i) {
        AVStream* stream = format->streams[i];
        if (sourceOf(stream) == sources.end()) stream->discard = AVDISCARD_ALL;
    }
    int64_t bytesLeft = avio_size(format->pb);
    telemetry.packets.reserve(packetsIn(sources, bytesLeft));
    const AvPtr<AVPacket> packet = makePacket();
    for (;;) {
        throwIfInterrupted();
        const int code = av_read_frame(format.get(), packet.get());
        if (code == AVERROR_EOF) return telemetry;
        if (code < 0) throw MediaError(path, "cannot be read on", code);
        const auto source = sourceOf(format->streams[packet->stream_index]);
        if (source != sources.end() && packet->size > 0) {
            bytesLeft -= packet->size;
            if (bytesLeft < 0) throw MediaError(path, "its telemetry is larger than the file");
            telemetry.packets.push_back(copyOf(*packet, *source));
        }
        av_packet_unref(packet.get());
    }
}

}  // namespace framehold
