#include "media/embedded_video.h"

#include <new>
#include <utility>

#include <fmt/format.h>

extern "C" {
#include <libavutil/base64.h>
#include <libavutil/mem.h>
}

namespace framehold {

namespace {

constexpr const char* kName = "the report's clip";  // for messages

/// A way to encode that browsers know.
struct Form {
    const char* encoder;
    int quality;
    const char* preset;
    const char* container;
    const char* type;
};

constexpr Form kForms[] = {{"libx264", 26, "fast", "mp4", "video/mp4"},
                           {"libvpx-vp9", 34, "", "webm", "video/webm"},
                           {"libvpx", 24, "", "webm", "video/webm"}};

const Form& installedForm() {
    for (const Form& form : kForms) {
        if (avcodec_find_encoder_by_name(form.encoder) != nullptr) return form;
    }
    throw MediaError(kName, "no encoder for H.264, VP9 or VP8 is installed");
}

}  // namespace

EmbeddedVideo::EmbeddedVideo(VideoSettings settings, int64_t bitRate, const VideoReader* source) {
    const Form& form = installedForm();
    type_ = form.type;
    settings.encoder = form.encoder;
    settings.quality = form.quality;
    settings.preset = form.preset;
    settings.pixelFormat = "yuv420p";  // others are not played everywhere
    const std::string rate = std::to_string(bitRate);
    settings.encoderOptions = {{"maxrate", rate}, {"bufsize", rate}};
    const bool isVpx = settings.encoder != "libx264";
    if (isVpx) settings.encoderOptions.insert({{"b", rate}, {"deadline", "realtime"}});
    AVFormatContext* format = nullptr;
    avformat_alloc_output_context2(&format, nullptr, form.container, nullptr);
    if (format == nullptr) throw std::bad_alloc();
    format_.reset(format);
    encoder_.emplace(kName, *format->oformat, settings, source);
    start();
}

void EmbeddedVideo::Close::operator()(AVFormatContext* format) const {
    if (format->pb != nullptr) {
        uint8_t* bytes = nullptr;
        avio_close_dyn_buf(format->pb, &bytes);
        av_free(bytes);
    }
    avformat_free_context(format);
}

void EmbeddedVideo::start() {
    AVStream* stream = avformat_new_stream(format_.get(), nullptr);
    if (stream == nullptr) throw std::bad_alloc();
    const AVCodecContext& codec = encoder_->codec();
    require(avcodec_parameters_from_context(stream->codecpar, &codec), "out of memory");
    stream->time_base = codec.time_base;
    stream->avg_frame_rate = codec.framerate;
    require(avio_open_dyn_buf(&format_->pb), "cannot be started");
    require(avformat_write_header(format_.get(), nullptr), "cannot be started");
}

void EmbeddedVideo::require(int code, const char* what) const {
    if (code < 0) throw MediaError(kName, what, code);
}

void EmbeddedVideo::encode(const AVFrame* frame) {
    encoder_->encode(frame, [this](AVPacket& packet) {
        packet.stream_index = 0;
        av_packet_rescale_ts(&packet, encoder_->codec().time_base, format_->streams[0]->time_base);
        require(av_interleaved_write_frame(format_.get(), &packet), "cannot be written");
    });
}

std::string EmbeddedVideo::finish() {
    encode(nullptr);
    require(av_write_trailer(format_.get()), "cannot be completed");
    uint8_t* bytes = nullptr;
    const int size = avio_close_dyn_buf(std::exchange(format_->pb, nullptr), &bytes);
    const std::unique_ptr<uint8_t, decltype(&av_free)> owner(bytes, av_free);
    return dataUrl(type_, bytes, size);
}

std::string dataUrl(const char* type, const uint8_t* bytes, int size) {
    const int length = AV_BASE64_SIZE(size);
    std::string text(static_cast<size_t>(length), '\0');
    av_base64_encode(text.data(), length, bytes, size);
    text.pop_back();  // the terminating zero
    return fmt::format("data:{};base64,{}", type, text);
}

}  // namespace framehold
