#include "common/interruption.h"
#include "common/text_fields.h"
#include "media/libav.h"
#include "media/metadata_types.h"
#include "media/stream_copier.h"
#include "media/telemetry_track.h"
#include "media/video_encoder.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <string_view>

#include <fmt/format.h>

namespace framehold {

namespace {

/// Packets' times on a clock of whole ticks.
struct TrackClock {
    int64_t start = 0;       // seconds of the packets' clock at the track's time 0
    int ticks = 1000000000;  // in a second

    TrackClock(const std::vector<TelemetryPacket>& packets, bool hasVideo) {
        constexpr double kHour = 3600.0;
        const double first = packets.front().time;
        // Beside a video, what is before its start gets times below 0, which players leave out.
        if ((first < 0.0 && !hasVideo) || first > kHour) {
            start = static_cast<int64_t>(std::floor(first));
        }
        double longest = 0.0;
        for (size_t i = 1; i < packets.size(); ++i) {
            longest = std::max(longest, packets[i].time - packets[i - 1].time);
        }
        // Steps are numbers of 32 bits, of which libav uses 31.
        while (longest * ticks > 2e9 && ticks > 1000) ticks /= 10;
    }

    int64_t at(double time) const {
        const double whole = std::floor(time);
        return (static_cast<int64_t>(whole) - start) * ticks + std::llround((time - whole) * ticks);
    }
};

class MotionTrackWriter {
public:
    MotionTrackWriter(const OutputName& name, const TelemetryTrack& track, bool hasVideo)
        : name_(name.path), track_(track), clock_(track.packets, hasVideo), file_(name) {
        const std::string url = fileUrl(file_.temporary());
        avformat_alloc_output_context2(&format_, &findContainer(name.path), nullptr, url.c_str());
        if (format_ == nullptr) throw std::bad_alloc();
    }
    ~MotionTrackWriter() {
        avio_closep(&format_->pb);
        avformat_free_context(format_);
    }
    MotionTrackWriter(const MotionTrackWriter&) = delete;
    MotionTrackWriter& operator=(const MotionTrackWriter&) = delete;

    /// video: null if there is none.
    void start(const AVFormatContext* video) {
        const std::string_view container = format_->oformat->name;
        if (container != "mp4" && container != "mov") {
            throw MediaError(name_, "is neither MP4 nor MOV, which hold motion");
        }
        if (video != nullptr) {
            copier_.emplace(*format_, *video, -1, "the log that was given takes its place");
            av_dict_copy(&format_->metadata, video->metadata, 0);
        }
        stream_ = avformat_new_stream(format_, nullptr);
        if (stream_ == nullptr) throw std::bad_alloc();
        stream_->codecpar->codec_type = AVMEDIA_TYPE_DATA;
        stream_->codecpar->codec_id = AV_CODEC_ID_BIN_DATA;
        // libav writes no type of its own but this one; see nameType.
        stream_->codecpar->codec_tag = MKTAG('g', 'p', 'm', 'd');
        stream_->time_base = {1, clock_.ticks};
        const std::string title =
            fmt::format("camera motion, axes {}, start {} s", track_.axes, clock_.start);
        av_dict_set(&stream_->metadata, "handler_name", title.c_str(), 0);
        require(avio_open(&format_->pb, format_->url, AVIO_FLAG_WRITE), "cannot be written");
        AVDictionary* options = nullptr;
        av_dict_set(&options, "movflags", "+faststart", 0);
        // Starts of streams are rounded to this.
        av_dict_set_int(&options, "movie_timescale", clock_.ticks, 0);
        const int code = avformat_write_header(format_, &options);
        av_dict_free(&options);
        require(code, "cannot be started");
    }

    /// Writes what comes next of the track, up to a packet of the video.
    void copy(AVPacket& packet, AVStream& from, const std::function<void()>& advance) {
        const AVRational rate = av_guess_frame_rate(nullptr, &from, nullptr);
        if (packet.duration == 0 && rate.num > 0) {
            // The last picture would be taken to be past the end.
            packet.duration = av_rescale_q(1, av_inv_q(rate), from.time_base);
        }
        if (packet.dts != AV_NOPTS_VALUE) {
            writeUntil(av_rescale_q(packet.dts, from.time_base, stream_->time_base), advance);
        }
        require(copier_->copy(packet), "cannot be written");
    }

    void finish(const std::function<void()>& advance) {
        writeUntil(INT64_MAX, advance);
        require(av_write_trailer(format_), "cannot be completed");
        avio_flush(format_->pb);
        require(format_->pb->error, "cannot be completed");
        require(avio_closep(&format_->pb), "cannot be completed");
        nameType();
        file_.commit();
    }

    std::vector<std::string> losses() const {
        return copier_ ? copier_->losses() : std::vector<std::string>();
    }

private:
    void require(int code, const char* what) const {
        if (code >= 0) return;
        throwIfInterrupted();
        throw MediaError(name_, what, code);
    }

    /// Up to the next packet; of the last one a millisecond: without any, it is taken
    /// to be past the track's end.
    int64_t durationOf(size_t i) const {
        const auto& packets = track_.packets;
        if (i + 1 < packets.size())
            return clock_.at(packets[i + 1].time) - clock_.at(packets[i].time);
        return std::max<int64_t>(1, clock_.ticks / 1000);
    }

    void writeUntil(int64_t end, const std::function<void()>& advance) {
        for (; next_ < track_.packets.size(); ++next_) {
            const TelemetryPacket& reading = track_.packets[next_];
            const int64_t time = clock_.at(reading.time);
            if (time > end) return;
            throwIfInterrupted();
            const AvPtr<AVPacket> packet = makePacket();
            if (av_new_packet(packet.get(), static_cast<int>(reading.bytes.size())) < 0) {
                throw std::bad_alloc();
            }
            std::memcpy(packet->data, reading.bytes.data(), reading.bytes.size());
            packet->stream_index = stream_->index;
            packet->pts = packet->dts = time;
            packet->duration = durationOf(next_);
            packet->flags = AV_PKT_FLAG_KEY;
            av_packet_rescale_ts(packet.get(), {1, clock_.ticks}, stream_->time_base);
            require(av_interleaved_write_frame(format_, packet.get()), "cannot be written");
            advance();
        }
    }

    /// Puts the track's type where libav has put the one that it knows.
    void nameType() {
        const auto positions = trackTypePositions(file_.temporary());
        const auto found = positions.find(stream_->index + 1);
        std::fstream bytes(file_.temporary(), std::ios::binary | std::ios::in | std::ios::out);
        char type[4] = {};
        if (found != positions.end()) {
            bytes.seekg(static_cast<std::streamoff>(found->second));
            bytes.read(type, sizeof type);
        }
        if (std::string_view(type, sizeof type) != "gpmd") {
            throw MediaError(name_, "cannot be completed: its motion track is not found");
        }
        bytes.seekp(static_cast<std::streamoff>(found->second));
        if (!bytes.write("camm", sizeof type).flush()) {
            throw MediaError(name_, "cannot be completed");
        }
    }

    std::string name_;
    const TelemetryTrack& track_;
    TrackClock clock_;
    OutputFile file_;
    AVFormatContext* format_ = nullptr;
    AVStream* stream_ = nullptr;
    std::optional<StreamCopier> copier_;
    size_t next_ = 0;  // packet
};

}  // namespace

std::vector<std::string> writeMotionTrack(const OutputName& name, const std::string& video,
                                          const TelemetryTrack& track,
                                          const std::function<void()>& advance) {
    if (track.packets.empty()) throw MediaError(name.path, "there is no motion to write");
    if (const double last = track.packets.back().time; last < 0.0 && !video.empty()) {
        throw MediaError(video, fmt::format("the log ends {} before its start; a time offset "
                                            "puts both on one clock",
                                            durationText(-last)));
    }
    MotionTrackWriter writer(name, track, !video.empty());
    AvInput input;
    if (!video.empty()) input = openInput(video);
    writer.start(input.get());
    const AvPtr<AVPacket> packet = makePacket();
    while (input) {
        throwIfInterrupted();
        const int code = av_read_frame(input.get(), packet.get());
        if (code == AVERROR_EOF) break;
        if (code < 0) throw MediaError(video, "cannot be read on", code);
        writer.copy(*packet, *input->streams[packet->stream_index], advance);
        av_packet_unref(packet.get());
    }
    writer.finish(advance);
    return writer.losses();
}

}  // namespace framehold
