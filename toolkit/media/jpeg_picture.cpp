#include "media/jpeg_picture.h"

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

}  // namespace framehold
