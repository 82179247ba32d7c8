#include "media/picture_writer.h"

#include "common/output_file.h"

#include <filesystem>
#include <fstream>

namespace framehold {

namespace {

AvPtr<AVFrame> toRgb(const AVFrame& frame) {
    AvPtr<AVFrame> rgb = makeFrame();
    rgb->format = AV_PIX_FMT_RGB24;
    rgb->width = frame.width;
    rgb->height = frame.height;
    if (av_frame_get_buffer(rgb.get(), 0) < 0) throw std::bad_alloc();
    const AvPtr<SwsContext> scaler(sws_getContext(
        frame.width, frame.height, AV_PIX_FMT_NV12, frame.width, frame.height, AV_PIX_FMT_RGB24,
        SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr, nullptr, nullptr));
    if (!scaler) throw std::bad_alloc();
    sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, rgb->data, rgb->linesize);
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

    OutputFile file(path);
    std::ofstream out(file.temporary(), std::ios::binary);
    out.write(reinterpret_cast<const char*>(packet->data), packet->size);
    out.close();
    if (!out) throw MediaError(path, "cannot be written");
    file.commit();
}

}  // namespace framehold
