#pragma once

#include "media/libav.h"
#include "media/pixel_converter.h"
#include "media/video_reader.h"

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace framehold {

/// Properties of a video that is written.
struct VideoSettings {
    int width = 0;  // pixels, of the result; frames have it rounded up to even
    int height = 0;
    AVPixelFormat frameFormat = AV_PIX_FMT_NV12;  // of the frames to be written
    AVRational timeBase{1, 90000};
    AVRational frameRate{30, 1};
    // FFmpeg's name. Empty: by the container, H.264 if it can hold it; for frames of more than 8
    // bits HEVC, which keeps them in a form that more players take than H.264's.
    std::string encoder;
    // FFmpeg's name. Empty: depth and chroma of the frames, or the encoder's nearest; for gray 4:2:0.
    std::string pixelFormat;
    std::optional<int> quality;  // in the encoder's units, 0 best; none: hardly visible losses
    bool isResult = true;        // is marked as made by this program, see markAsResult
    HdrMetadata hdr;             // where the source has none
    std::string preset;          // of the encoder, speed against size; empty: a moderate one
    std::map<std::string, std::string> encoderOptions;  // FFmpeg's names, beside those above
};

/// Has the encoder of a file encode one frame, for what is wrong with its settings. file: its
/// extension gives the container; "-" is YUV4MPEG2. source: see VideoEncoder. Throws MediaError.
void tryEncoder(const std::string& file, const VideoSettings& settings,
                const VideoReader* source = nullptr);

/// Container that a file's extension stands for; "-" is YUV4MPEG2. Throws MediaError.
const AVOutputFormat& findContainer(const std::string& file);

/// Encodes frames of one pixel format. All functions throw MediaError.
class VideoEncoder {
public:
    using PacketSink = std::function<void(AVPacket&)>;

    /// file: name of the result, for messages. source: null, or the video whose colour tags and
    /// sample aspect ratio are taken over. HDR frames of more than 8 bits are not encoded in 8 unless
    /// the settings name that pixel format.
    VideoEncoder(const std::string& file, const AVOutputFormat& container,
                 const VideoSettings& settings, const VideoReader* source);

    const AVCodecContext& codec() const { return *codec_; }

    /// True if frames keep their times; else they are written at the settings' frame rate.
    bool hasFrameTimes() const { return hasFrameTimes_; }

    /// Takes a frame whose pts is in the settings' time base; null: there are no more. Passes the
    /// packets that are complete to `sink`, their times in the codec's time base.
    void encode(const AVFrame* frame, const PacketSink& sink);

private:
    void choosePixelFormat(const VideoSettings& settings);
    void requireDepth(const VideoSettings& settings) const;
    void chooseSize(const VideoSettings& settings);
    void takeOver(const VideoReader& source);
    void openDevice(const VideoSettings& settings);
    void open(const VideoSettings& settings);
    AVPixelFormat softwareFormat() const;
    AvPtr<AVFrame> upload(AvPtr<AVFrame> frame) const;
    AvPtr<AVFrame> convert(const AVFrame& frame);

    std::string file_;
    const AVCodec* encoder_;
    bool hasFrameTimes_;  // else the container counts frames
    int64_t frames_ = 0;  // so far
    AvPtr<AVCodecContext> codec_;
    AvPtr<AVPacket> packet_;
    PixelConverter converter_;
};

}  // namespace framehold
