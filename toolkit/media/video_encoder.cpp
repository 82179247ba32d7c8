#include "media/video_encoder.h"

#include "media/libav.h"
#include "media/planar_frame.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include <fmt/format.h>

extern "C" {
#include <libavutil/hwcontext.h>
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

bool holds(const AVOutputFormat& container, AVCodecID codec) {
    // Transport streams have no list of codecs to ask.
    return avformat_query_codec(&container, codec, FF_COMPLIANCE_NORMAL) == 1 ||
           std::strcmp(container.name, "mpegts") == 0;
}

const AVCodec* findEncoder(const std::string& file, const AVOutputFormat& container,
                           const VideoSettings& settings) {
    const std::string& name = settings.encoder;
    if (!name.empty()) {
        const AVCodec* encoder = avcodec_find_encoder_by_name(name.c_str());
        if (encoder != nullptr && encoder->type == AVMEDIA_TYPE_VIDEO) return encoder;
        throw MediaError(file, fmt::format("--encoder: FFmpeg here has no video encoder '{}'; "
                                           "`ffmpeg -encoders` lists those it has",
                                           name));
    }
    if (depthOf(settings.frameFormat) > 8 && holds(container, AV_CODEC_ID_HEVC)) {
        const AVCodec* encoder = avcodec_find_encoder_by_name("libx265");
        if (encoder != nullptr) return encoder;
    }
    const bool holdsH264 = holds(container, AV_CODEC_ID_H264);
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

/// True for formats whose pixels are in the memory of a device.
bool isOnDevice(AVPixelFormat format) {
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
    return d != nullptr && (d->flags & AV_PIX_FMT_FLAG_HWACCEL) != 0;
}

/// True for encoders, as those of VA-API, that do not copy frames to their device by themselves.
bool takesOnlyDeviceFrames(const AVCodec& encoder) {
    const std::vector<AVPixelFormat> formats = formatsOf(encoder);
    return !formats.empty() && std::all_of(formats.begin(), formats.end(), isOnDevice);
}

AVHWDeviceType deviceOf(const AVCodec& encoder) {
    for (int i = 0; const AVCodecHWConfig* config = avcodec_get_hw_config(&encoder, i); ++i) {
        if (config->device_type != AV_HWDEVICE_TYPE_NONE) return config->device_type;
    }
    return AV_HWDEVICE_TYPE_NONE;
}

}  // namespace

const AVOutputFormat& findContainer(const std::string& file) {
    const char* pipeFormat = file == "-" ? "yuv4mpegpipe" : nullptr;
    const AVOutputFormat* container = av_guess_format(pipeFormat, file.c_str(), nullptr);
    if (container != nullptr) return *container;
    throw MediaError(file, "no container format is known for this name; try .mp4 or .mkv");
}

void tryEncoder(const std::string& file, const VideoSettings& settings, const VideoReader* source) {
    constexpr int kSide = 256;
    VideoSettings small = settings;
    small.width = small.height = kSide;
    // The default is finer than MPEG-4 takes, and a source's own may be, too.
    if (source == nullptr) small.timeBase = {1, 30};
    VideoEncoder encoder(file, findContainer(file), small, source);
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
    : file_(file), encoder_(findEncoder(file, container, settings)),
      hasFrameTimes_(!countsFrames(container)), codec_(avcodec_alloc_context3(encoder_)),
      packet_(makePacket()) {
    if (!codec_) throw std::bad_alloc();
    choosePixelFormat(settings);
    chooseSize(settings);
    codec_->time_base = hasFrameTimes_ ? settings.timeBase : av_inv_q(settings.frameRate);
    codec_->framerate = settings.frameRate;
    codec_->thread_count = 0;
    if (source != nullptr) takeOver(*source);
    requireDepth(settings);
    if ((container.flags & AVFMT_GLOBALHEADER) != 0) codec_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (isOnDevice(codec_->pix_fmt)) openDevice(settings);
    open(settings);
}

/// Makes room for frames on the device that the encoder takes them from.
void VideoEncoder::openDevice(const VideoSettings& settings) {
    const AVHWDeviceType type = deviceOf(*encoder_);
    const char* name = av_hwdevice_get_type_name(type);
    forgetLibavMessage();
    AVBufferRef* device = nullptr;
    int code = av_hwdevice_ctx_create(&device, type, nullptr, nullptr, 0);
    if (code < 0) {
        throw MediaError(
            file_,
            fmt::format("--encoder {} needs a {} device, such as /dev/dri/renderD128, and none "
                        "can be opened{}",
                        encoder_->name, name != nullptr ? name : "special", libavMessage()));
    }
    codec_->hw_frames_ctx = av_hwframe_ctx_alloc(device);
    av_buffer_unref(&device);
    if (codec_->hw_frames_ctx == nullptr) throw std::bad_alloc();
    constexpr int kWaiting = 20;  // frames that the encoder may keep
    auto& frames = *reinterpret_cast<AVHWFramesContext*>(codec_->hw_frames_ctx->data);
    frames.format = codec_->pix_fmt;
    frames.sw_format = depthOf(settings.frameFormat) > 8 ? AV_PIX_FMT_P010 : AV_PIX_FMT_NV12;
    frames.width = codec_->width;
    frames.height = codec_->height;
    frames.initial_pool_size = kWaiting;
    code = av_hwframe_ctx_init(codec_->hw_frames_ctx);
    if (code >= 0) return;
    throw MediaError(file_,
                     fmt::format("--encoder {}: the device has no room for frames of {}x{}{}",
                                 encoder_->name, codec_->width, codec_->height, libavMessage()),
                     code);
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
    AVPixelFormat wanted = planarFormat(settings.frameFormat);
    const AVPixFmtDescriptor* frames = av_pix_fmt_desc_get(wanted);
    // Few players take streams without chroma.
    const bool isGray = frames == nullptr || frames->nb_components < 3;
    if (isGray) wanted = planarFormat(AV_PIX_FMT_YUV420P, depthOf(wanted));
    const AVPixelFormat whole = planarFormat(AV_PIX_FMT_YUV444P, depthOf(wanted));
    const bool isOdd = settings.width % 2 != 0 || settings.height % 2 != 0;
    const bool keepsOdd = isOdd && needsEvenSize(encoder_->id, wanted);
    if (formats.empty()) {
        codec_->pix_fmt = wanted;
    } else if (takesOnlyDeviceFrames(*encoder_)) {
        codec_->pix_fmt = formats.front();
    } else if (keepsOdd && contains(formats, whole)) {
        codec_->pix_fmt = whole;
    } else {
        codec_->pix_fmt = avcodec_find_best_pix_fmt_of_list(encoder_->pix_fmts, wanted, 0, nullptr);
    }
}

void VideoEncoder::requireDepth(const VideoSettings& settings) const {
    const int depth = depthOf(settings.frameFormat);
    if (!settings.pixelFormat.empty() || depth <= 8 || depthOf(codec_->pix_fmt) > 8 ||
        isOnDevice(codec_->pix_fmt) || !isHdr(codec_->color_trc)) {
        return;
    }
    throw MediaError(
        file_, fmt::format("{} keeps 8 of {} bits, in which HDR ({}) shows steps: choose another "
                           "encoder, such as --encoder libx265, or --pixel-format {} to have it so",
                           encoder_->name, depth, av_color_transfer_name(codec_->color_trc),
                           av_get_pix_fmt_name(codec_->pix_fmt)));
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
    // libx265 prints messages of its own, whatever FFmpeg's level.
    const std::string hdr = hdrParameters(settings.hdr, encoder_->name);
    if (hasOption(*encoder_, "x265-params")) {
        av_dict_set(&options, "x265-params", ("log-level=error" + hdr).c_str(), 0);
    } else if (hasOption(*encoder_, "x264-params") && !hdr.empty()) {
        av_dict_set(&options, "x264-params", hdr.c_str() + 1, 0);
    }
    for (const auto& [key, value] : settings.encoderOptions) {
        // Lists of an encoder's own parameters are added to those that are set above.
        const bool isList = key == "x265-params" || key == "x264-params";
        if (isList && av_dict_get(options, key.c_str(), nullptr, 0) != nullptr) {
            av_dict_set(&options, key.c_str(), (":" + value).c_str(), AV_DICT_APPEND);
        } else {
            av_dict_set(&options, key.c_str(), value.c_str(), 0);
        }
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
        const bool isGiven = settings.encoderOptions.count(refused) > 0;
        throw MediaError(
            file_, fmt::format("--{}{}: {} has no such option", isGiven ? "encoder-option " : "",
                               refused, encoder_->name));
    }
}

/// Pixel format in which frames are made for the encoder.
AVPixelFormat VideoEncoder::softwareFormat() const {
    if (codec_->hw_frames_ctx == nullptr) return codec_->pix_fmt;
    return reinterpret_cast<AVHWFramesContext*>(codec_->hw_frames_ctx->data)->sw_format;
}

/// The frame in the memory of the encoder's device, if it has one.
AvPtr<AVFrame> VideoEncoder::upload(AvPtr<AVFrame> frame) const {
    if (codec_->hw_frames_ctx == nullptr) return frame;
    AvPtr<AVFrame> there = makeFrame();
    int code = av_hwframe_get_buffer(codec_->hw_frames_ctx, there.get(), 0);
    if (code >= 0) code = av_hwframe_transfer_data(there.get(), frame.get(), 0);
    if (code >= 0) code = av_frame_copy_props(there.get(), frame.get());
    if (code < 0)
        throw MediaError(file_, "a frame cannot be brought to the encoder's device", code);
    return there;
}

/// The frame as the encoder takes it, without what is there only to make the size even.
AvPtr<AVFrame> VideoEncoder::convert(const AVFrame& frame) {
    const AVPixelFormat format = softwareFormat();
    const bool isThere =
        frame.format == format && frame.width == codec_->width && frame.height == codec_->height;
    AvPtr<AVFrame> converted =
        isThere ? makeFrame() : makeFrame(format, codec_->width, codec_->height);
    if (isThere && av_frame_ref(converted.get(), &frame) < 0) throw std::bad_alloc();
    converted->color_range = codec_->color_range;
    converted->colorspace = codec_->colorspace;
    converted->pts = hasFrameTimes_ ? frame.pts : frames_;
    converted->pkt_duration = hasFrameTimes_ ? frame.pkt_duration : 1;
    if (isThere) return upload(std::move(converted));
    const FrameArea area{codec_->width, codec_->height};
    converter_.convert(frame, area, *converted, area);
    return upload(std::move(converted));
}

void VideoEncoder::encode(const AVFrame* frame, const PacketSink& sink) {
    const AvPtr<AVFrame> converted = frame != nullptr ? convert(*frame) : nullptr;
    if (frame != nullptr) ++frames_;
    int code = avcodec_send_frame(codec_.get(), converted.get());
    while (code >= 0) {
        code = avcodec_receive_packet(codec_.get(), packet_.get());
        if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) return;
        // libx265 leaves the decoding times unset where it gets no more than two frames, which have
        // one order only.
        const bool isShort = frame == nullptr && frames_ <= 2;
        if (isShort && std::strcmp(encoder_->name, "libx265") == 0) packet_->dts = packet_->pts;
        if (code >= 0) sink(*packet_);
    }
    throw MediaError(file_, "cannot be encoded", code);
}

}  // namespace framehold
