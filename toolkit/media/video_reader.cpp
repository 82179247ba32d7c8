#include "media/video_reader.h"

#include "common/interruption.h"
#include "common/text_fields.h"
#include "media/planar_frame.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <fmt/format.h>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace framehold {

namespace {

/// Repeats the last column and row of odd content in a frame that has room for one more.
void repeatOddEdges(AVFrame& frame, int width, int height) {
    uint8_t* luma = frame.data[0];
    const ptrdiff_t pitch = frame.linesize[0];
    if (width < frame.width) {
        for (int y = 0; y < height; ++y) luma[y * pitch + width] = luma[y * pitch + width - 1];
    }
    if (height < frame.height) {
        std::copy_n(luma + (height - 1) * pitch, frame.width, luma + height * pitch);
    }
}

}  // namespace

VideoReader::VideoReader(const std::string& path)
    : name_(path == "-" ? "standard input" : path), format_(openInput(path)), decoded_(makeFrame()),
      packet_(makePacket()) {
    openDecoder();
    converted_ = makeNv12Frame(width(), height());
    const ColourTags tags = colours();
    converted_->color_range = tags.range;
    converted_->colorspace = tags.matrix;
}

void VideoReader::openDecoder() {
    const AVCodec* decoder = nullptr;
    int code = av_find_best_stream(format_.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
    if (code < 0) throw MediaError(name_, "holds no video that can be decoded", code);
    stream_ = format_->streams[code];
    codec_.reset(avcodec_alloc_context3(decoder));
    if (!codec_) throw std::bad_alloc();
    avcodec_parameters_to_context(codec_.get(), stream_->codecpar);
    codec_->pkt_timebase = stream_->time_base;
    codec_->thread_count = 0;
    code = avcodec_open2(codec_.get(), decoder, nullptr);
    if (code < 0) throw MediaError(name_, "cannot be decoded", code);
    content_ = {codec_->width, codec_->height};
    if (codec_->width < 2 || codec_->height < 2) {
        throw MediaError(name_, "holds no video of a known size");
    }
}

AVRational VideoReader::frameRate() const {
    const AVRational rate = av_guess_frame_rate(format_.get(), stream_, nullptr);
    return rate.num > 0 && rate.den > 0 ? rate : AVRational{30, 1};
}

int64_t VideoReader::expectedFrames() const {
    // AVI counts in units of its time base, which may be half a frame.
    const bool countsTicks = std::strcmp(format_->iformat->name, "avi") == 0;
    if (stream_->nb_frames > 0 && !countsTicks) return stream_->nb_frames;
    if (stream_->nb_frames > 0) {
        return std::llround(static_cast<double>(stream_->nb_frames) * av_q2d(timeBase()) *
                            framesPerSecond());
    }
    if (format_->duration == AV_NOPTS_VALUE) return 0;
    const double seconds = static_cast<double>(format_->duration) / AV_TIME_BASE;
    return std::llround(std::max(0.0, seconds * framesPerSecond()));
}

ColourTags VideoReader::colours() const {
    if (isRgb(codec_->pix_fmt)) {
        return {AVCOL_RANGE_MPEG, codec_->color_primaries, codec_->color_trc, AVCOL_SPC_BT709,
                AVCHROMA_LOC_LEFT};
    }
    const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(codec_->pix_fmt);
    const bool is420 =
        pixels != nullptr && pixels->log2_chroma_w == 1 && pixels->log2_chroma_h == 1;
    return {codec_->color_range, codec_->color_primaries, codec_->color_trc, codec_->colorspace,
            is420 ? codec_->chroma_sample_location : AVCHROMA_LOC_LEFT};
}

void VideoReader::sendPacket() {
    const int code = avcodec_send_packet(codec_.get(), packet_.get());
    av_packet_unref(packet_.get());
    // A damaged packet costs its frame; the decoder goes on with the next one.
    if (code == AVERROR_INVALIDDATA) {
        ++damagedPackets_;
    } else if (code < 0) {
        throw MediaError(name_, "cannot be decoded on", code);
    }
}

/// Keeps how far the file was read, of pictures and sound.
void VideoReader::notePacket() {
    const AVStream& stream = *format_->streams[packet_->stream_index];
    ++packets_;
    readBytes_ = avio_tell(format_->pb);
    isLastCorrupt_ = (packet_->flags & AV_PKT_FLAG_CORRUPT) != 0;
    if (packet_->pts == AV_NOPTS_VALUE) return;
    reachedTime_ = std::max(reachedTime_, av_rescale_q(packet_->pts + packet_->duration,
                                                       stream.time_base, {1, AV_TIME_BASE}));
}

/// Time at which the container says that it ends: that of its longest stream, if streams have durations
/// of their own. Data does not count: motion may be logged before and after the pictures.
int64_t VideoReader::statedEnd() const {
    int64_t end = 0;
    for (unsigned i = 0; i < format_->nb_streams; ++i) {
        const AVStream& stream = *format_->streams[i];
        const bool isData = stream.codecpar->codec_type == AVMEDIA_TYPE_DATA;
        if (isData || stream.duration <= 0) continue;
        const int64_t start = stream.start_time == AV_NOPTS_VALUE ? 0 : stream.start_time;
        end = std::max(end, av_rescale_q(av_sat_add64(start, stream.duration), stream.time_base,
                                         AV_TIME_BASE_Q));
    }
    return end > 0 ? end : std::max<int64_t>(0, format_->start_time) + format_->duration;
}

/// code: of the read that gave no packet.
bool VideoReader::endsEarly(int code) const {
    if (code != AVERROR_EOF || isLastCorrupt_) return true;
    const bool isRaw = std::strcmp(format_->iformat->name, "yuv4mpegpipe") == 0;
    if (isRaw) return avio_tell(format_->pb) > readBytes_;
    if (format_->duration_estimation_method != AVFMT_DURATION_FROM_STREAM) return false;
    constexpr double kSlack = 0.1;  // seconds that containers are off, beside two frames
    const double slack = kSlack + 2.0 / framesPerSecond();
    return format_->duration > 0 &&
           static_cast<double>(statedEnd() - reachedTime_) > slack * AV_TIME_BASE;
}

/// Passes the next packet to the decoder, or signals that there are no more.
void VideoReader::feedDecoder() {
    for (;;) {
        const int code = av_read_frame(format_.get(), packet_.get());
        throwIfInterrupted();
        if (code == AVERROR_EOF || (code < 0 && acceptsCut_ && packets_ > 0)) {
            endedEarly_ = endsEarly(code);
            avcodec_send_packet(codec_.get(), nullptr);
            return;
        }
        if (code < 0) throw MediaError(name_, "cannot be read on", code);
        notePacket();
        if (packet_->stream_index == stream_->index) return sendPacket();
        if (sink_) sink_(*packet_);
        av_packet_unref(packet_.get());
    }
}

bool VideoReader::decode() {
    for (;;) {
        const int code = avcodec_receive_frame(codec_.get(), decoded_.get());
        if (code == 0) return true;
        if (code == AVERROR_EOF) return false;
        if (code == AVERROR_INVALIDDATA) {
            ++damagedPackets_;
        } else if (code != AVERROR(EAGAIN)) {
            throw MediaError(name_, "cannot be decoded on", code);
        }
        feedDecoder();
    }
}

/// Frames without a range have that of the stream.
void VideoReader::completeProperties() {
    if (decoded_->color_range == AVCOL_RANGE_UNSPECIFIED) {
        decoded_->color_range = codec_->color_range;
    }
    hdr_.addMissing(hdrMetadataOf(*stream_, decoded_.get()));
    isInterlaced_ = isInterlaced_ || decoded_->interlaced_frame != 0;
}

void VideoReader::convert() {
    if (av_frame_make_writable(converted_.get()) < 0) throw std::bad_alloc();
    completeProperties();
    try {
        converter_.convert(*decoded_, {decoded_->width, decoded_->height}, *converted_, content_);
    } catch (const std::runtime_error& error) {
        throw MediaError(name_, error.what());
    }
    repeatOddEdges(*converted_, content_.width, content_.height);
    converted_->pts = takeTimestamp();
    converted_->pkt_duration = decoded_->pkt_duration;
}

void VideoReader::convertToPlanar() {
    completeProperties();
    try {
        planar_ = toPlanar(*decoded_, converter_);
        const FrameArea area{planar_->width, planar_->height};
        if (area.width != content_.width || area.height != content_.height ||
            planar_->format != planarFormat()) {
            AvPtr<AVFrame> scaled = makeFrame(planarFormat(), content_.width, content_.height);
            if (av_frame_copy_props(scaled.get(), planar_.get()) < 0) throw std::bad_alloc();
            converter_.convert(*planar_, area, *scaled, content_);
            planar_ = std::move(scaled);
        }
    } catch (const std::runtime_error& error) {
        throw MediaError(name_, error.what());
    }
    planar_->pts = takeTimestamp();
}

/// Timestamp of the decoded frame; where it has none the expected one, and the frame is counted.
int64_t VideoReader::takeTimestamp() {
    int64_t pts = decoded_->best_effort_timestamp;
    if (pts == AV_NOPTS_VALUE) {
        pts = nextPts_;
        ++untimedFrames_;
    }
    nextPts_ = pts + av_rescale_q(1, av_inv_q(frameRate()), timeBase());
    return pts;
}

std::vector<std::string> VideoReader::losses(size_t frames) const {
    std::vector<std::string> losses;
    if (endedEarly_) {
        const int64_t expected = expectedFrames();
        const bool isMore = expected > static_cast<int64_t>(frames);
        const char* about = stream_->nb_frames > 0 ? "" : "about ";
        losses.push_back("the input ends early: " +
                         (isMore
                              ? fmt::format("{} of {}{} frames are there", frames, about, expected)
                              : "it has " + counted(frames, "frame")));
    }
    if (damagedPackets_ > 0) {
        losses.push_back(
            fmt::format("left out {} and what is in {}",
                        counted(static_cast<size_t>(damagedPackets_), "damaged packet"),
                        damagedPackets_ == 1 ? "it" : "them"));
    }
    return losses;
}

const AVFrame* VideoReader::next() {
    if (!decode()) return nullptr;
    convert();
    return converted_.get();
}

const AVFrame* VideoReader::nextPlanar() {
    if (!decode()) return nullptr;
    convertToPlanar();
    return planar_.get();
}

HdrMetadata VideoReader::hdrMetadata() const {
    HdrMetadata metadata = hdr_;
    metadata.addMissing(hdrMetadataOf(*stream_, nullptr));
    return metadata;
}

AVPixelFormat VideoReader::planarFormat() const { return framehold::planarFormat(codec_->pix_fmt); }

double VideoReader::startTime() const {
    if (stream_->start_time == AV_NOPTS_VALUE) return 0.0;
    return static_cast<double>(stream_->start_time) * av_q2d(timeBase());
}

bool VideoReader::seek(double seconds) {
    const int64_t timestamp = std::llround(seconds / av_q2d(timeBase()));
    if (av_seek_frame(format_.get(), stream_->index, timestamp, AVSEEK_FLAG_BACKWARD) < 0) {
        return false;
    }
    avcodec_flush_buffers(codec_.get());
    return true;
}

std::vector<double> frameTimestamps(const std::string& video) {
    const AvInput format = openInput(video);
    const int index = av_find_best_stream(format.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (index < 0) throw MediaError(video, "holds no video", index);
    const double timeBase = av_q2d(format->streams[index]->time_base);
    const AvPtr<AVPacket> packet = makePacket();
    std::vector<double> times;
    while (av_read_frame(format.get(), packet.get()) >= 0) {
        throwIfInterrupted();
        if (packet->stream_index == index && packet->pts != AV_NOPTS_VALUE) {
            times.push_back(static_cast<double>(packet->pts) * timeBase);
        }
        av_packet_unref(packet.get());
    }
    std::sort(times.begin(), times.end());
    return times;
}

const AVFrame* FrameSeeker::next() {
    const AVFrame* frame = reader_.next();
    if (frame == nullptr) return nullptr;
    const double time = reader_.seconds(*frame);
    if (!started_) first_ = time;
    started_ = true;
    time_ = time - first_;
    return frame;
}

const AVFrame* FrameSeeker::seek(double time) {
    const AVFrame* frame = next();
    while (frame != nullptr && time_ < time - 0.5 / reader_.framesPerSecond()) frame = next();
    return frame;
}

}  // namespace framehold
