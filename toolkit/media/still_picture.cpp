#include "media/still_picture.h"

#include "common/output_file.h"
#include "media/pixel_converter.h"

#include <algorithm>
#include <vector>

extern "C" {
#include <libavutil/base64.h>
}

namespace framehold {

namespace {

/// As JPEG has it: full range, and the colour matrix of standard definition.
AvPtr<AVFrame> toJpegFormat(const AVFrame& frame, int largestWidth) {
    AvPtr<AVFrame> result = makeFrame();
    result->format = AV_PIX_FMT_YUVJ420P;
    result->width = std::min(frame.width, largestWidth) & ~1;
    result->height = static_cast<int>(int64_t{frame.height} * result->width / frame.width) & ~1;
    if (av_frame_get_buffer(result.get(), 0) < 0) throw std::bad_alloc();
    const AvPtr<SwsContext> scaler(
        sws_getContext(frame.width, frame.height, static_cast<AVPixelFormat>(frame.format),
                       result->width, result->height, AV_PIX_FMT_YUVJ420P,
                       SWS_AREA | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
    if (!scaler) throw std::bad_alloc();
    constexpr int kOne = 1 << 16;  // no change of contrast and saturation
    sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(frame.colorspace),
                             frame.color_range == AVCOL_RANGE_JPEG ? 1 : 0,
                             sws_getCoefficients(SWS_CS_ITU601), 1, 0, kOne, kOne);
    sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, result->data,
              result->linesize);
    return result;
}

}  // namespace

std::string jpegDataUrl(const AVFrame& frame, int largestWidth) {
    constexpr int kQuality = 4;  // 2 (best) to 31
    const AVCodec* encoder = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    if (encoder == nullptr) throw MediaError("JPEG", "no encoder is installed");
    const AvPtr<AVFrame> picture = toJpegFormat(frame, largestWidth);
    picture->quality = kQuality * FF_QP2LAMBDA;
    const AvPtr<AVCodecContext> codec(avcodec_alloc_context3(encoder));
    if (!codec) throw std::bad_alloc();
    codec->width = picture->width;
    codec->height = picture->height;
    codec->pix_fmt = AV_PIX_FMT_YUVJ420P;
    codec->time_base = {1, 1};
    codec->flags |= AV_CODEC_FLAG_QSCALE;
    codec->global_quality = picture->quality;
    const AvPtr<AVPacket> packet = makePacket();
    int code = avcodec_open2(codec.get(), encoder, nullptr);
    if (code >= 0) code = avcodec_send_frame(codec.get(), picture.get());
    if (code >= 0) code = avcodec_receive_packet(codec.get(), packet.get());
    if (code < 0) throw MediaError("JPEG", "cannot be encoded", code);

    const int size = AV_BASE64_SIZE(packet->size);
    std::string text(static_cast<size_t>(size), '\0');
    av_base64_encode(text.data(), size, packet->data, packet->size);
    text.pop_back();  // the terminating zero
    return "data:image/jpeg;base64," + text;
}

namespace {

AvPtr<AVFrame> toRgb(const AVFrame& frame) {
    AvPtr<AVFrame> rgb = makeFrame(AV_PIX_FMT_RGB24, frame.width, frame.height);
    const FrameArea area{frame.width, frame.height};
    PixelConverter converter;
    converter.convert(frame, area, *rgb, area);
    return rgb;
}

}  // namespace

void writePng(const std::string& path, const AVFrame& frame) {
    const AVCodec* encoder = avcodec_find_encoder(AV_CODEC_ID_PNG);
    if (encoder == nullptr) throw MediaError(path, "no PNG encoder is installed");
    const AvPtr<AVCodecContext> codec(avcodec_alloc_context3(encoder));
    if (!codec) throw std::bad_alloc();
    const AvPtr<AVFrame> rgb = toRgb(frame);
    codec->width = rgb->width;
    codec->height = rgb->height;
    codec->pix_fmt = AV_PIX_FMT_RGB24;
    codec->time_base = {1, 1};
    const AvPtr<AVPacket> packet = makePacket();
    int code = avcodec_open2(codec.get(), encoder, nullptr);
    if (code >= 0) code = avcodec_send_frame(codec.get(), rgb.get());
    if (code >= 0) code = avcodec_receive_packet(codec.get(), packet.get());
    if (code < 0) throw MediaError(path, "cannot be encoded", code);

    writeFile(path,
              {reinterpret_cast<const char*>(packet->data), static_cast<size_t>(packet->size)});
}

namespace {

/// Calls visit(byte) for every byte of the planes, in order.
template <class Visit>
void visitBytes(const AVFrame& frame, Visit visit) {
    for (int plane = 0; plane < 2; ++plane) {
        for (int y = 0; y < frame.height >> plane; ++y) {
            uint8_t* row = frame.data[plane] + ptrdiff_t{y} * frame.linesize[plane];
            std::for_each(row, row + frame.width, visit);
        }
    }
}

}  // namespace

void MeanFrame::add(const AVFrame& frame) {
    if (!mean_) {
        mean_ = makeNv12Frame(frame.width, frame.height);
        av_frame_copy_props(mean_.get(), &frame);
        sums_.resize(static_cast<size_t>(frame.width) * static_cast<size_t>(frame.height) * 3 / 2);
    }
    auto sum = sums_.begin();
    visitBytes(frame, [&](const uint8_t& byte) { *sum++ += byte; });
    ++count_;
}

const AVFrame& MeanFrame::frame() {
    auto sum = sums_.begin();
    visitBytes(*mean_,
               [&](uint8_t& byte) { byte = static_cast<uint8_t>((*sum++ + count_ / 2) / count_); });
    return *mean_;
}

}  // namespace framehold
