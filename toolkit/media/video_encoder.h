#pragma once

#include "media/libav.h"
#include "media/pixel_converter.h"
#include "media/video_reader.h"

#include <functional>
#include <optional>
#include <string>

namespace framehold {

struct VideoSettings {
    int width = 0;  // of the result; frames have it rounded up to even
    int height = 0;
    AVRational timeBase{1, 90000};
    AVRational frameRate{30, 1};
    std::string encoder;         // FFmpeg's name; empty: what suits the container, H.264 if it can
    std::string pixelFormat;     // FFmpeg's name; empty: 8-bit 4:2:0, or what comes next to it
    std::optional<int> quality;  // as the encoder counts, 0 best; none: a good one
    std::string preset;          // of the encoder: speed against size; empty: a good one
};

/// Encodes 8-bit two-plane 4:2:0 frames. All functions throw MediaError.
class VideoEncoder {
public:
    using PacketSink = std::function<void(AVPacket&)>;

    /// file: names the result in messages. source: null, or whose colour tags and sample aspect
    /// are taken over.
    VideoEncoder(const std::string& file, const AVOutputFormat& container,
                 const VideoSettings& settings, const VideoReader* source);

    const AVCodecContext& codec() const { return *codec_; }

    /// Whether frames keep their times; else they go out at the settings' frame rate.
    bool hasFrameTimes() const { return hasFrameTimes_; }

    /// Takes a frame whose pts is in the settings' time base; null: there are no more. Hands what
    /// has been encoded to `sink`, its times in the codec's time base.
    void encode(const AVFrame* frame, const PacketSink& sink);

private:
    void choosePixelFormat(const VideoSettings& settings);
    void chooseSize(const VideoSettings& settings);
    void takeOver(const VideoReader& source);
    void open(const VideoSettings& settings);
    AvPtr<AVFrame> convert(const AVFrame& frame);

    std::string file_;
    const AVCodec* encoder_;
    bool hasFrameTimes_;  // else the container counts frames
    int64_t frames_ = 0;
    AvPtr<AVCodecContext> codec_;
    AvPtr<AVPacket> packet_;
    PixelConverter converter_;
};

}  // namespace framehold
