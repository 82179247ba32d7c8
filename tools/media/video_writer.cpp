#include "media/video_writer.h"

#include <algorithm>
#include <filesystem>

#include <fmt/format.h>

namespace framehold {

VideoWriter::VideoWriter(const std::string& path, const VideoSettings& settings,
                         const VideoReader* source)
    : file_(path), packet_(makePacket()) {
    const AVOutputFormat* container = av_guess_format(nullptr, path.c_str(), nullptr);
    if (container == nullptr) {
        throw MediaError(path, "no container format is known for this name; try .mp4 or .mkv");
    }
    avformat_alloc_output_context2(&format_, container, nullptr, file_.temporary().c_str());
    if (format_ == nullptr) throw std::bad_alloc();
    try {
        openEncoder(settings, source);
        addVideoStream(source);
        if (source != nullptr) copyAudioStreams(*source);
        require(avio_open(&format_->pb, file_.temporary().c_str(), AVIO_FLAG_WRITE),
                "cannot be written");
        AVDictionary* options = nullptr;
        av_dict_set(&options, "movflags", "+faststart", 0);
        const int code = avformat_write_header(format_, &options);
        av_dict_free(&options);
        require(code, "cannot be started");
    } catch (...) {
        avio_closep(&format_->pb);
        avformat_free_context(format_);
        throw;
    }
}

VideoWriter::~VideoWriter() {
    if (format_ == nullptr) return;
    avio_closep(&format_->pb);
    avformat_free_context(format_);
}

void VideoWriter::require(int code, const char* what) const {
    if (code < 0) throw MediaError(file_.path(), what, code);
}

void VideoWriter::openEncoder(const VideoSettings& settings, const VideoReader* source) {
    const AVCodec* encoder = avcodec_find_encoder_by_name("libx264");
    if (encoder == nullptr) encoder = avcodec_find_encoder(AV_CODEC_ID_H264);
    if (encoder == nullptr) throw MediaError(file_.path(), "no H.264 encoder is installed");
    codec_.reset(avcodec_alloc_context3(encoder));
    if (!codec_) throw std::bad_alloc();
    codec_->width = settings.width;
    codec_->height = settings.height;
    codec_->pix_fmt = AV_PIX_FMT_NV12;
    codec_->time_base = settings.timeBase;
    codec_->framerate = settings.frameRate;
    codec_->thread_count = 0;
    if (source != nullptr) {
        const AVCodecContext& from = source->codec();
        codec_->color_range = from.color_range;
        codec_->color_primaries = from.color_primaries;
        codec_->color_trc = from.color_trc;
        codec_->colorspace = from.colorspace;
        codec_->chroma_sample_location = from.chroma_sample_location;
        codec_->sample_aspect_ratio = from.sample_aspect_ratio;
    }
    if ((format_->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
        codec_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    AVDictionary* options = nullptr;
    av_dict_set_int(&options, "crf", settings.quality, 0);
    av_dict_set(&options, "preset", settings.preset.c_str(), 0);
    const int code = avcodec_open2(codec_.get(), encoder, &options);
    av_dict_free(&options);
    require(code, "the encoder cannot be started");
}

void VideoWriter::addVideoStream(const VideoReader* source) {
    stream_ = avformat_new_stream(format_, nullptr);
    if (stream_ == nullptr) throw std::bad_alloc();
    require(avcodec_parameters_from_context(stream_->codecpar, codec_.get()), "out of memory");
    stream_->time_base = codec_->time_base;
    stream_->avg_frame_rate = codec_->framerate;
    stream_->sample_aspect_ratio = codec_->sample_aspect_ratio;
    if (source == nullptr) return;
    av_dict_copy(&format_->metadata, source->container().metadata, 0);
    av_dict_copy(&stream_->metadata, source->stream().metadata, 0);
    const AVStream& from = source->stream();
    size_t size = 0;
    const uint8_t* matrix = av_stream_get_side_data(&from, AV_PKT_DATA_DISPLAYMATRIX, &size);
    if (matrix != nullptr) {
        uint8_t* copy = av_stream_new_side_data(stream_, AV_PKT_DATA_DISPLAYMATRIX, size);
        if (copy == nullptr) throw std::bad_alloc();
        std::copy(matrix, matrix + size, copy);
    }
}

void VideoWriter::copyAudioStreams(const VideoReader& source) {
    const AVFormatContext& container = source.container();
    for (unsigned i = 0; i < container.nb_streams; ++i) {
        const AVStream& from = *container.streams[i];
        if (from.codecpar->codec_type != AVMEDIA_TYPE_AUDIO) continue;
        AVStream* to = avformat_new_stream(format_, nullptr);
        if (to == nullptr) throw std::bad_alloc();
        require(avcodec_parameters_copy(to->codecpar, from.codecpar), "out of memory");
        to->codecpar->codec_tag = 0;
        to->time_base = from.time_base;
        to->disposition = from.disposition;
        av_dict_copy(&to->metadata, from.metadata, 0);
        copied_[static_cast<int>(i)] = {to, from.time_base};
    }
}

void VideoWriter::encode(const AVFrame* frame) {
    require(avcodec_send_frame(codec_.get(), frame), "cannot be encoded");
    for (;;) {
        const int code = avcodec_receive_packet(codec_.get(), packet_.get());
        if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) return;
        require(code, "cannot be encoded");
        packet_->stream_index = stream_->index;
        av_packet_rescale_ts(packet_.get(), codec_->time_base, stream_->time_base);
        require(av_interleaved_write_frame(format_, packet_.get()), "cannot be written");
    }
}

void VideoWriter::write(const AVFrame& frame) { encode(&frame); }

void VideoWriter::copyPacket(const AVPacket& packet) {
    const auto found = copied_.find(packet.stream_index);
    if (found == copied_.end()) return;
    const CopiedStream& to = found->second;
    AvPtr<AVPacket> copy(av_packet_clone(&packet));
    if (!copy) throw std::bad_alloc();
    copy->stream_index = to.stream->index;
    copy->pos = -1;
    av_packet_rescale_ts(copy.get(), to.sourceTimeBase, to.stream->time_base);
    require(av_interleaved_write_frame(format_, copy.get()), "cannot be written");
}

void VideoWriter::finish() {
    encode(nullptr);
    require(av_write_trailer(format_), "cannot be completed");
    require(avio_closep(&format_->pb), "cannot be completed");
    try {
        file_.commit();
    } catch (const std::filesystem::filesystem_error& error) {
        throw MediaError(file_.path(), error.code().message());
    }
}

}  // namespace framehold
