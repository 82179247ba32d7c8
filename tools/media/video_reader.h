#pragma once

#include "media/av_handles.h"

#include <functional>
#include <memory>
#include <string>

namespace framehold {

/// Decodes the best video stream of a file to two-plane 4:2:0 frames of even size; an odd last
/// column or row is left out.
class VideoReader {
public:
    /// Gets every packet of the other streams, in file order.
    using PacketSink = std::function<void(const AVPacket&)>;

    /// Throws MediaError if the file cannot be opened or holds no video that can be decoded.
    explicit VideoReader(const std::string& path);

    int width() const { return codec_->width & ~1; }
    int height() const { return codec_->height & ~1; }
    AVRational timeBase() const { return stream_->time_base; }
    /// 30 if neither container nor codec tells.
    AVRational frameRate() const;
    double framesPerSecond() const { return av_q2d(frameRate()); }

    /// Number of frames, as far as the container tells; else an estimate, 0 if there is none.
    int64_t expectedFrames() const;

    const AVFormatContext& container() const { return *format_; }
    const AVStream& stream() const { return *stream_; }
    const AVCodecContext& codec() const { return *codec_; }

    void setPacketSink(PacketSink sink) { sink_ = std::move(sink); }

    /// The next frame (its pts in `timeBase`), valid until the next call; null at the end.
    /// Throws MediaError.
    const AVFrame* next();

private:
    bool decode();
    void feedDecoder();
    void convert();

    std::string path_;
    AvInput format_;
    AVStream* stream_ = nullptr;
    AvPtr<AVCodecContext> codec_;
    AvPtr<AVFrame> decoded_;
    AvPtr<AVFrame> converted_;
    AvPtr<AVPacket> packet_;
    AvPtr<SwsContext> scaler_;
    PacketSink sink_;
};

}  // namespace framehold
