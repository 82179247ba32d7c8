#include "media/still_picture.h"

#include "media/embedded_video.h"
#include "media/pixel_converter.h"

#include <algorithm>
#include <vector>

#include <fmt/format.h>

namespace framehold {

namespace {

/// Encodes a frame as a picture of its own, with the frame's quality where that is set.
/// name: of the result, for messages.
AvPtr<AVPacket> encodePicture(const std::string& name, AVCodecID format, const AVFrame& frame) {
    const AVCodec* encoder = avcodec_find_encoder(format);
    if (encoder == nullptr) {
        throw MediaError(name,
                         fmt::format("no encoder for {} is installed", avcodec_get_name(format)));
    }
    const AvPtr<AVCodecContext> codec(avcodec_alloc_context3(encoder));
    if (!codec) throw std::bad_alloc();
    codec->width = frame.width;
    codec->height = frame.height;
    codec->pix_fmt = static_cast<AVPixelFormat>(frame.format);
    codec->time_base = {1, 1};
    if (frame.quality > 0) {
        codec->flags |= AV_CODEC_FLAG_QSCALE;
        codec->global_quality = frame.quality;
    }
    AvPtr<AVPacket> packet = makePacket();
    int code = avcodec_open2(codec.get(), encoder, nullptr);
    if (code >= 0) code = avcodec_send_frame(codec.get(), &frame);
    if (code >= 0) code = avcodec_receive_packet(codec.get(), packet.get());
    if (code < 0) throw MediaError(name, "cannot be encoded", code);
    return packet;
}

/// A frame as JPEG has it: full range, and the colour matrix of standard definition.
AvPtr<AVFrame> toJpegFormat(const AVFrame& frame, int largestWidth) {
    const int width = std::min(frame.width, largestWidth) & ~1;
    const int height = static_cast<int>(int64_t{frame.height} * width / frame.width) & ~1;
    AvPtr<AVFrame> result = makeFrame(AV_PIX_FMT_YUVJ420P, width, height);
    const AvPtr<SwsContext> scaler(sws_getContext(
        frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), width, height,
        AV_PIX_FMT_YUVJ420P, SWS_AREA | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
    if (!scaler) throw std::bad_alloc();
    constexpr int kOne = 1 << 16;  // no change of contrast and saturation
    sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(frame.colorspace),
                             isFullRange(frame) ? 1 : 0, sws_getCoefficients(SWS_CS_ITU601), 1, 0,
                             kOne, kOne);
    sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, result->data,
              result->linesize);
    return result;
}

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

std::string jpegDataUrl(const AVFrame& frame, int largestWidth) {
    constexpr int kQuality = 4;  // 2 (best) to 31
    const AvPtr<AVFrame> picture = toJpegFormat(frame, largestWidth);
    picture->quality = kQuality * FF_QP2LAMBDA;
    const AvPtr<AVPacket> packet = encodePicture("JPEG", AV_CODEC_ID_MJPEG, *picture);
    return dataUrl("image/jpeg", packet->data, packet->size);
}

void writePng(const OutputName& name, const AVFrame& frame) {
    const AvPtr<AVFrame> rgb = makeFrame(AV_PIX_FMT_RGB24, frame.width, frame.height);
    const FrameArea area{frame.width, frame.height};
    PixelConverter converter;
    converter.convert(frame, area, *rgb, area);
    const AvPtr<AVPacket> packet = encodePicture(name.path, AV_CODEC_ID_PNG, *rgb);
    writeFile(name,
              {reinterpret_cast<const char*>(packet->data), static_cast<size_t>(packet->size)});
}

void MeanFrame::add(const AVFrame& frame) {
    if (isEmpty()) {
        properties_ = makeFrame();
        av_frame_copy_props(properties_.get(), &frame);
        properties_->width = frame.width;
        properties_->height = frame.height;
        sums_.resize(static_cast<size_t>(frame.width) * static_cast<size_t>(frame.height) * 3 / 2);
    }
    auto sum = sums_.begin();
    visitBytes(frame, [&](const uint8_t& byte) { *sum++ += byte; });
    ++count_;
}

AvPtr<AVFrame> MeanFrame::mean() const {
    AvPtr<AVFrame> frame = makeNv12Frame(properties_->width, properties_->height);
    av_frame_copy_props(frame.get(), properties_.get());
    auto sum = sums_.begin();
    visitBytes(*frame,
               [&](uint8_t& byte) { byte = static_cast<uint8_t>((*sum++ + count_ / 2) / count_); });
    return frame;
}

}  // namespace framehold
