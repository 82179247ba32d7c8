#include "media/video_writer.h"

#include "common/interruption.h"
#include "media/planar_frame.h"
#include "media/results.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>

extern "C" {
#include <libavutil/display.h>
}

namespace framehold {

namespace {

/// True for MP4 and its relatives, the only containers that hold a rotation.
bool isMovie(const AVOutputFormat& container) {
    const char* const kNames[] = {"mp4", "mov", "ipod", "3gp", "3g2", "psp"};
    return std::any_of(std::begin(kNames), std::end(kNames),
                       [&](const char* name) { return std::strcmp(name, container.name) == 0; });
}

/// True if the frame rate varies: the average one is below the largest.
bool isIrregular(const VideoReader& source) {
    const AVStream& stream = source.stream();
    return av_q2d(stream.r_frame_rate) > 1.01 * av_q2d(stream.avg_frame_rate);
}

/// Removes tags that describe how the source was coded and written.
void removeStaleTags(AVDictionary*& tags) {
    constexpr const char* kStale[] = {"encoder",       "vendor_id",         "major_brand",
                                      "minor_version", "compatible_brands", "BPS",
                                      "DURATION",      "NUMBER_OF_",        "_STATISTICS_"};
    for (const char* key : kStale) {
        while (const auto* tag = av_dict_get(tags, key, nullptr, AV_DICT_IGNORE_SUFFIX)) {
            av_dict_set(&tags, std::string(tag->key).c_str(), nullptr, 0);
        }
    }
}

}  // namespace

VideoWriter::VideoWriter(const OutputName& name, const VideoSettings& settings,
                         const VideoReader* source)
    : name_(name.path == "-" ? "standard output" : name.path) {
    const AVOutputFormat& container = findContainer(name.path);
    if (name.path != "-") file_.emplace(name);
    const std::string url = file_ ? fileUrl(file_->temporary()) : "pipe:1";
    avformat_alloc_output_context2(&format_, &container, nullptr, url.c_str());
    if (format_ == nullptr) throw std::bad_alloc();
    try {
        start(settings, source);
    } catch (...) {
        close();
        throw;
    }
}

VideoWriter::~VideoWriter() { close(); }

void VideoWriter::close() {
    if (format_ == nullptr) return;
    avio_closep(&format_->pb);
    avformat_free_context(format_);
    format_ = nullptr;
}

void VideoWriter::start(const VideoSettings& settings, const VideoReader* source) {
    VideoSettings complete = settings;
    const bool isDeep = depthOf(settings.frameFormat) > 8;
    if (source != nullptr && isDeep) complete.hdr.addMissing(source->hdrMetadata());
    encoder_.emplace(name_, *format_->oformat, complete, source);
    // YUV4MPEG2 of more than 8 bits is a common extension.
    if (isDeep) format_->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;
    addVideoStream(source);
    addHdrMetadata(complete.hdr, *stream_);
    if (settings.isResult) markAsResult(*format_, *stream_, encoder_->codec().codec->name);
    if (source != nullptr) {
        copySideData(*source);
        copier_.emplace(*format_, source->container(), source->stream().index);
    }
    require(avio_open(&format_->pb, format_->url, AVIO_FLAG_WRITE), "cannot be written");
    AVDictionary* options = nullptr;
    if (isMovie(*format_->oformat)) av_dict_set(&options, "movflags", "+faststart", 0);
    const int code = avformat_write_header(format_, &options);
    av_dict_free(&options);
    require(code, "cannot be started");
}

void VideoWriter::require(int code, const char* what) const {
    if (code >= 0) return;
    throwIfInterrupted();
    throw MediaError(name_, what, code);
}

void VideoWriter::addVideoStream(const VideoReader* source) {
    stream_ = avformat_new_stream(format_, nullptr);
    if (stream_ == nullptr) throw std::bad_alloc();
    const AVCodecContext& codec = encoder_->codec();
    require(avcodec_parameters_from_context(stream_->codecpar, &codec), "out of memory");
    // The other tag for HEVC, FFmpeg's default, is unknown to Apple's players.
    const bool isHevc = codec.codec_id == AV_CODEC_ID_HEVC;
    if (isHevc && isMovie(*format_->oformat)) {
        stream_->codecpar->codec_tag = MKTAG('h', 'v', 'c', '1');
    }
    stream_->time_base = codec.time_base;
    stream_->avg_frame_rate = codec.framerate;
    stream_->sample_aspect_ratio = codec.sample_aspect_ratio;
    if (source == nullptr) return;
    if (!encoder_->hasFrameTimes() && isIrregular(*source)) {
        losses_.push_back(fmt::format("{} holds no frame times: {:g} frames per second go out",
                                      format_->oformat->name, av_q2d(codec.framerate)));
    }
    av_dict_copy(&format_->metadata, source->container().metadata, 0);
    av_dict_copy(&stream_->metadata, source->stream().metadata, 0);
    removeStaleTags(format_->metadata);
    removeStaleTags(stream_->metadata);
    stream_->disposition = source->stream().disposition;
}

/// Copies the side data on how pictures are to be shown, not on how they were coded.
void VideoWriter::copySideData(const VideoReader& source) {
    for (const AVPacketSideDataType type :
         {AV_PKT_DATA_DISPLAYMATRIX, AV_PKT_DATA_MASTERING_DISPLAY_METADATA,
          AV_PKT_DATA_CONTENT_LIGHT_LEVEL, AV_PKT_DATA_STEREO3D, AV_PKT_DATA_SPHERICAL}) {
        size_t size = 0;
        const uint8_t* data = av_stream_get_side_data(&source.stream(), type, &size);
        if (data == nullptr) continue;
        uint8_t* copy = av_stream_new_side_data(stream_, type, size);
        if (copy == nullptr) throw std::bad_alloc();
        std::copy(data, data + size, copy);
        if (type != AV_PKT_DATA_DISPLAYMATRIX || isMovie(*format_->oformat)) continue;
        const double degrees = av_display_rotation_get(reinterpret_cast<const int32_t*>(data));
        losses_.push_back(fmt::format(
            "the rotation of the picture by {:g} degrees is left out: {} cannot hold it", degrees,
            format_->oformat->name));
    }
}

std::vector<std::string> VideoWriter::losses() const {
    std::vector<std::string> all = losses_;
    if (copier_) all.insert(all.end(), copier_->losses().begin(), copier_->losses().end());
    return all;
}

void VideoWriter::encode(const AVFrame* frame) {
    encoder_->encode(frame, [this](AVPacket& packet) {
        packet.stream_index = stream_->index;
        av_packet_rescale_ts(&packet, encoder_->codec().time_base, stream_->time_base);
        require(av_interleaved_write_frame(format_, &packet), "cannot be written");
    });
}

void VideoWriter::copyPacket(const AVPacket& packet) {
    if (copier_) require(copier_->copy(packet), "cannot be written");
}

void VideoWriter::finish() {
    encode(nullptr);
    require(av_write_trailer(format_), "cannot be completed");
    avio_flush(format_->pb);
    require(format_->pb->error, "cannot be completed");
    require(avio_closep(&format_->pb), "cannot be completed");
    if (file_) file_->commit();
}

}  // namespace framehold
