#include "media/video_encoder.h"

#include "media/libav.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include <fmt/format.h>

extern "C" {
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

namespace framehold {

namespace {

/// Quality and preset at which losses are hardly visible, at a bearable speed.
struct Defaults {
    const char* encoder;
    int quality;
    const char* preset;
};

constexpr Defaults kDefaults[] = {
    {"libx264", 18, "medium"}, {"libx265", 20, "medium"}, {"libsvtav1", 25, "8"},
    {"libaom-av1", 25, ""},    {"libvpx-vp9", 24, ""},    {"mpeg4", 3, ""},
};

const AVCodec* findEncoder(const std::string& file, const AVOutputFormat& container,
                           const std::string& name) {
    if (!name.empty()) {
        const AVCodec* encoder = avcodec_find_encoder_by_name(name.c_str());
        if (encoder != nullptr && encoder->type == AVMEDIA_TYPE_VIDEO) return encoder;
        throw MediaError(file, fmt::format("--encoder: FFmpeg here has no video encoder '{}'; "
                                           "`ffmpeg -encoders` lists those it has",
                                           name));
    }
    // Transport streams have no list of codecs to ask.
    const bool holdsH264 =
        avformat_query_codec(&container, AV_CODEC_ID_H264, FF_COMPLIANCE_NORMAL) == 1 ||
        std::strcmp(container.name, "mpegts") == 0;
    const AVCodec* encoder = holdsH264 ? avcodec_find_encoder_by_name("libx264") : nullptr;
    if (encoder == nullptr) {
        encoder = avcodec_find_encoder(holdsH264 ? AV_CODEC_ID_H264 : container.video_codec);
    }
    if (encoder != nullptr) return encoder;
    throw MediaError(file, fmt::format("no video encoder for {} is installed", container.name));
}

/// FFmpeg's flag for this is not set for MP4.
bool countsFrames(const AVOutputFormat& container) {
    const std::string name = container.name;
    return name == "avi" || name == "yuv4mpegpipe";
}

/// Pixel formats that an encoder takes; empty if it does not list them.
std::vector<AVPixelFormat> formatsOf(const AVCodec& encoder) {
    std::vector<AVPixelFormat> formats;
    for (const AVPixelFormat* f = encoder.pix_fmts; f != nullptr && *f != AV_PIX_FMT_NONE; ++f) {
        formats.push_back(*f);
    }
    return formats;
}

bool contains(const std::vector<AVPixelFormat>& formats, AVPixelFormat format) {
    return std::find(formats.begin(), formats.end(), format) != formats.end();
}

std::string namesOf(const std::vector<AVPixelFormat>& formats) {
    std::string names;
    for (const AVPixelFormat f : formats) {
        names += (names.empty() ? "" : ", ") + std::string(av_get_pix_fmt_name(f));
    }
    return names;
}

/// H.264 and HEVC cut their pictures in steps of whole chroma samples.
bool needsEvenSize(AVCodecID codec, AVPixelFormat format) {
    const bool isOfThem = codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC;
    return isOfThem && av_pix_fmt_desc_get(format)->log2_chroma_w > 0;
}

bool hasOption(const AVCodec& encoder, const char* name) {
    const AVClass* options = encoder.priv_class;
    return options != nullptr &&
           av_opt_find(&options, name, nullptr, 0, AV_OPT_SEARCH_FAKE_OBJ) != nullptr;
}

}  // namespace

const AVOutputFormat& findContainer(const std::string& file) {
    const char* pipeFormat = file == "-" ? "yuv4mpegpipe" : nullptr;
    const AVOutputFormat* container = av_guess_format(pipeFormat, file.c_str(), nullptr);
    if (container != nullptr) return *container;
    throw MediaError(file, "no container format is known for this name; try .mp4 or .mkv");
}

void tryEncoder(const std::string& file, const VideoSettings& settings) {
    constexpr int kSide = 256;
    VideoSettings small = settings;
    small.width = small.height = kSide;
    VideoEncoder encoder(file, findContainer(file), small, nullptr);
    // Deliberate: SVT-AV1 never comes to an end without a frame.
    const AvPtr<AVFrame> frame = makeNv12Frame(kSide, kSide);
    for (int plane = 0; plane < 2; ++plane) {
        std::fill_n(frame->data[plane], (kSide >> plane) * frame->linesize[plane],
                    Levels::kNoChroma);
    }
    frame->pts = 0;
    const auto ignore = [](AVPacket& packet) { av_packet_unref(&packet); };
    encoder.encode(frame.get(), ignore);
    encoder.encode(nullptr, ignore);
}

VideoEncoder::VideoEncoder(const std::string& file, const AVOutputFormat& container,
                           const VideoSettings& settings, const VideoReader* source)
    : file_(file), encoder_(findEncoder(file, container, settings.encoder)),
      hasFrameTimes_(!countsFrames(container)), codec_(avcodec_alloc_context3(encoder_)),
      packet_(makePacket()) {
    if (!codec_) throw std::bad_alloc();
    choosePixelFormat(settings);
    chooseSize(settings);
    codec_->time_base = hasFrameTimes_ ? settings.timeBase : av_inv_q(settings.frameRate);
    codec_->framerate = settings.frameRate;
    codec_->thread_count = 0;
    if (source != nullptr) takeOver(*source);
    if ((container.flags & AVFMT_GLOBALHEADER) != 0) codec_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    open(settings);
}

void VideoEncoder::choosePixelFormat(const VideoSettings& settings) {
    const std::vector<AVPixelFormat> formats = formatsOf(*encoder_);
    if (!settings.pixelFormat.empty()) {
        codec_->pix_fmt = av_get_pix_fmt(settings.pixelFormat.c_str());
        if (codec_->pix_fmt == AV_PIX_FMT_NONE ||
            (!formats.empty() && !contains(formats, codec_->pix_fmt))) {
            throw MediaError(
                file_, fmt::format("--pixel-format: {} does not take '{}' but {}", encoder_->name,
                                   settings.pixelFormat, namesOf(formats)));
        }
        return;
    }
    const bool isOdd = settings.width % 2 != 0 || settings.height % 2 != 0;
    const bool keepsOdd = isOdd && needsEvenSize(encoder_->id, AV_PIX_FMT_YUV420P);
    if (formats.empty()) {
        codec_->pix_fmt = AV_PIX_FMT_YUV420P;
    } else if (keepsOdd && contains(formats, AV_PIX_FMT_YUV444P)) {
        codec_->pix_fmt = AV_PIX_FMT_YUV444P;
    } else {
        codec_->pix_fmt =
            avcodec_find_best_pix_fmt_of_list(encoder_->pix_fmts, AV_PIX_FMT_YUV420P, 0, nullptr);
    }
}

void VideoEncoder::chooseSize(const VideoSettings& settings) {
    const int step = needsEvenSize(codec_->codec_id, codec_->pix_fmt) ? 2 : 1;
    codec_->width = (settings.width + step - 1) / step * step;
    codec_->height = (settings.height + step - 1) / step * step;
}

void VideoEncoder::takeOver(const VideoReader& source) {
    const ColourTags tags = source.colours();
    codec_->color_range = tags.range;
    codec_->color_primaries = tags.primaries;
    codec_->color_trc = tags.transfer;
    codec_->colorspace = isRgb(codec_->pix_fmt) ? AVCOL_SPC_RGB : tags.matrix;
    codec_->chroma_sample_location = tags.chromaLocation;
    codec_->sample_aspect_ratio =
        av_guess_sample_aspect_ratio(nullptr, const_cast<AVStream*>(&source.stream()), nullptr);
}

void VideoEncoder::open(const VideoSettings& settings) {
    std::optional<int> quality = settings.quality;
    std::string preset = settings.preset;
    for (const Defaults& d : kDefaults) {
        if (std::string(d.encoder) != encoder_->name) continue;
        if (!quality) quality = d.quality;
        if (preset.empty()) preset = d.preset;
    }
    AVDictionary* options = nullptr;
    if (quality && hasOption(*encoder_, "crf")) {
        av_dict_set_int(&options, "crf", *quality, 0);
    } else if (quality) {
        codec_->flags |= AV_CODEC_FLAG_QSCALE;
        codec_->global_quality = *quality * FF_QP2LAMBDA;
    }
    if (!preset.empty()) av_dict_set(&options, "preset", preset.c_str(), 0);
    // It prints messages of its own, whatever FFmpeg's level.
    if (hasOption(*encoder_, "x265-params")) {
        av_dict_set(&options, "x265-params", "log-level=error", 0);
    }
    forgetLibavMessage();
    const int code = avcodec_open2(codec_.get(), encoder_, &options);
    const AVDictionaryEntry* unused = av_dict_get(options, "", nullptr, AV_DICT_IGNORE_SUFFIX);
    const std::string refused = unused != nullptr ? unused->key : "";
    av_dict_free(&options);
    if (code < 0) {
        throw MediaError(
            file_,
            fmt::format("the encoder {} cannot be started{}", encoder_->name, libavMessage()),
            code);
    }
    if (!refused.empty()) {
        throw MediaError(file_,
                         fmt::format("--{}: {} has no such option", refused, encoder_->name));
    }
}

/// The frame as the encoder takes it, without what is there only to make the size even.
AvPtr<AVFrame> VideoEncoder::convert(const AVFrame& frame) {
    AvPtr<AVFrame> converted = makeFrame(codec_->pix_fmt, codec_->width, codec_->height);
    converted->color_range = codec_->color_range;
    converted->colorspace = codec_->colorspace;
    converted->pts = hasFrameTimes_ ? frame.pts : frames_++;
    converted->pkt_duration = hasFrameTimes_ ? frame.pkt_duration : 1;
    const FrameArea area{codec_->width, codec_->height};
    converter_.convert(frame, area, *converted, area);
    return converted;
}

void VideoEncoder::encode(const AVFrame* frame, const PacketSink& sink) {
    const AvPtr<AVFrame> converted = frame != nullptr ? convert(*frame) : nullptr;
    int code = avcodec_send_frame(codec_.get(), converted.get());
    while (code >= 0) {
        code = avcodec_receive_packet(codec_.get(), packet_.get());
        if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) return;
        if (code >= 0) sink(*packet_);
    }
    throw MediaError(file_, "cannot be encoded", code);
}

}  // namespace framehold
