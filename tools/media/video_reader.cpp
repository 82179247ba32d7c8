#include "media/video_reader.h"

#include <cmath>

namespace framehold {

VideoReader::VideoReader(const std::string& path)
    : path_(path), format_(openInput(path)), decoded_(makeFrame()), packet_(makePacket()) {
    const AVCodec* decoder = nullptr;
    int code = av_find_best_stream(format_.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
    if (code < 0) throw MediaError(path, "holds no video that can be decoded", code);
    stream_ = format_->streams[code];
    codec_.reset(avcodec_alloc_context3(decoder));
    if (!codec_) throw std::bad_alloc();
    avcodec_parameters_to_context(codec_.get(), stream_->codecpar);
    codec_->pkt_timebase = stream_->time_base;
    codec_->thread_count = 0;
    code = avcodec_open2(codec_.get(), decoder, nullptr);
    if (code < 0) throw MediaError(path, "cannot be decoded", code);
    converted_ = makeNv12Frame(width(), height());
}

AVRational VideoReader::frameRate() const {
    const AVRational rate = av_guess_frame_rate(format_.get(), stream_, nullptr);
    return rate.num > 0 && rate.den > 0 ? rate : AVRational{30, 1};
}

int64_t VideoReader::expectedFrames() const {
    if (stream_->nb_frames > 0) return stream_->nb_frames;
    if (format_->duration == AV_NOPTS_VALUE) return 0;
    const double seconds = static_cast<double>(format_->duration) / AV_TIME_BASE;
    return std::llround(std::max(0.0, seconds * framesPerSecond()));
}

/// Hands the decoder its next packet, or tells it that there are no more.
void VideoReader::feedDecoder() {
    for (;;) {
        int code = av_read_frame(format_.get(), packet_.get());
        if (code == AVERROR_EOF) {
            avcodec_send_packet(codec_.get(), nullptr);
            return;
        }
        if (code < 0) throw MediaError(path_, "cannot be read on", code);
        const bool isVideo = packet_->stream_index == stream_->index;
        if (!isVideo && sink_) sink_(*packet_);
        if (isVideo) {
            code = avcodec_send_packet(codec_.get(), packet_.get());
            av_packet_unref(packet_.get());
            // A damaged packet costs its frame; the decoder goes on with the next one.
            if (code < 0 && code != AVERROR_INVALIDDATA) {
                throw MediaError(path_, "cannot be decoded on", code);
            }
            return;
        }
        av_packet_unref(packet_.get());
    }
}

bool VideoReader::decode() {
    for (;;) {
        const int code = avcodec_receive_frame(codec_.get(), decoded_.get());
        if (code == 0) return true;
        if (code == AVERROR_EOF) return false;
        if (code != AVERROR(EAGAIN)) throw MediaError(path_, "cannot be decoded on", code);
        feedDecoder();
    }
}

void VideoReader::convert() {
    const auto format = static_cast<AVPixelFormat>(decoded_->format);
    // Same size before and after, so that nothing is scaled; frames of another size than the
    // first one are.
    const bool sameSize = decoded_->width == codec_->width && decoded_->height == codec_->height;
    const int fromWidth = sameSize ? width() : decoded_->width;
    const int fromHeight = sameSize ? height() : decoded_->height;
    scaler_.reset(sws_getCachedContext(scaler_.release(), fromWidth, fromHeight, format, width(),
                                       height(), AV_PIX_FMT_NV12, SWS_BICUBIC | SWS_ACCURATE_RND,
                                       nullptr, nullptr, nullptr));
    if (!scaler_) throw MediaError(path_, "has a pixel format that cannot be converted");
    // The range of the levels stays what it is.
    const int fullRange = codec_->color_range == AVCOL_RANGE_JPEG ? 1 : 0;
    const int* coefficients = sws_getCoefficients(SWS_CS_DEFAULT);
    sws_setColorspaceDetails(scaler_.get(), coefficients, fullRange, coefficients, fullRange, 0,
                             1 << 16, 1 << 16);
    if (av_frame_make_writable(converted_.get()) < 0) throw std::bad_alloc();
    sws_scale(scaler_.get(), decoded_->data, decoded_->linesize, 0, fromHeight, converted_->data,
              converted_->linesize);
    converted_->pts = decoded_->best_effort_timestamp;
    converted_->pkt_duration = decoded_->pkt_duration;
}

const AVFrame* VideoReader::next() {
    if (!decode()) return nullptr;
    convert();
    return converted_.get();
}

}  // namespace framehold
