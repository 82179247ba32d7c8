#pragma once

#include "media/hdr_metadata.h"
#include "media/libav.h"
#include "media/pixel_converter.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace framehold {

/// Meaning of a frame's samples as colours.
struct ColourTags {
    AVColorRange range = AVCOL_RANGE_UNSPECIFIED;
    AVColorPrimaries primaries = AVCOL_PRI_UNSPECIFIED;
    AVColorTransferCharacteristic transfer = AVCOL_TRC_UNSPECIFIED;
    AVColorSpace matrix = AVCOL_SPC_UNSPECIFIED;
    AVChromaLocation chromaLocation = AVCHROMA_LOC_UNSPECIFIED;
};

/// Decodes the best video stream of a file: to 8-bit two-plane 4:2:0 frames of even size, with an
/// odd last column or row twice, or to frames of its own depth and chroma.
class VideoReader {
public:
    /// Takes every packet of the other streams, in file order.
    using PacketSink = std::function<void(const AVPacket&)>;

    /// path: any file that FFmpeg reads; or "-", standard input.
    /// Throws MediaError if it cannot be opened or holds no video that can be decoded.
    explicit VideoReader(const std::string& path);

    /// Size in pixels of the frames that `next` gives.
    int width() const { return contentWidth() + (contentWidth() & 1); }
    int height() const { return contentHeight() + (contentHeight() & 1); }

    /// Size in pixels of the video itself.
    int contentWidth() const { return content_.width; }
    int contentHeight() const { return content_.height; }

    AVRational timeBase() const { return stream_->time_base; }

    /// Time of a frame that `next` gave, in seconds.
    double seconds(const AVFrame& frame) const {
        return static_cast<double>(frame.pts) * av_q2d(timeBase());
    }

    /// Timestamp of the first frame by the container, in seconds; 0 if it has none.
    double startTime() const;

    /// Frames per second; 30 if neither container nor codec has a rate.
    AVRational frameRate() const;
    double framesPerSecond() const { return av_q2d(frameRate()); }

    /// Number of frames by the container; else an estimate, 0 if there is none.
    int64_t expectedFrames() const;

    const AVFormatContext& container() const { return *format_; }
    const AVStream& stream() const { return *stream_; }
    const AVCodecContext& codec() const { return *codec_; }

    /// Colour tags of the frames that `next` gives.
    ColourTags colours() const;

    /// Number of packets that could not be decoded; their frames are missing.
    int damagedPackets() const { return damagedPackets_; }

    /// Number of frames without a timestamp of their own, which got one by the frame rate.
    int untimedFrames() const { return untimedFrames_; }

    /// Takes what cannot be read for the end, once there was a packet, where else `next` throws.
    void acceptCutInput() { acceptsCut_ = true; }

    /// True if the end was reached too early: within a packet, at what could not be read, or long
    /// before the end that the container states.
    bool endedEarly() const { return endedEarly_; }

    /// What could not be read, for the user; frames: that `next` gave.
    std::vector<std::string> losses(size_t frames) const;

    /// True once a frame was interlaced; its two fields are not separated.
    bool isInterlaced() const { return isInterlaced_; }

    void setPacketSink(PacketSink sink) { sink_ = std::move(sink); }

    /// The next frame (its pts in `timeBase`), valid until a call gives another; null at the end,
    /// where the last frame stays valid.
    /// Throws MediaError; Interrupted where it waits for standard input.
    const AVFrame* next();

    /// The next frame like `next`, but of the video's own size, depth and chroma: in planarFormat().
    const AVFrame* nextPlanar();

    /// Pixel format of the frames that `nextPlanar` gives.
    AVPixelFormat planarFormat() const;

    /// Metadata of the stream; what the container does not have, of the frames so far.
    HdrMetadata hdrMetadata() const;

    /// Goes to the last keyframe that is not after a timestamp in seconds, for `next` to go on
    /// there. False, at an unknown place, if the file cannot do that.
    bool seek(double seconds);

private:
    void openDecoder();
    bool decode();
    void feedDecoder();
    void sendPacket();
    void notePacket();
    int64_t statedEnd() const;
    bool endsEarly(int code) const;
    void completeProperties();
    void convert();
    void convertToPlanar();
    int64_t takeTimestamp();

    std::string name_;  // of the source, for messages
    AvInput format_;
    AVStream* stream_ = nullptr;
    AvPtr<AVCodecContext> codec_;
    FrameArea content_{};  // streams may change their size; ours stays
    AvPtr<AVFrame> decoded_;
    HdrMetadata hdr_;  // of the frames so far
    AvPtr<AVFrame> converted_;
    AvPtr<AVFrame> planar_;
    AvPtr<AVPacket> packet_;
    PixelConverter converter_;
    PacketSink sink_;
    int damagedPackets_ = 0;
    int untimedFrames_ = 0;
    bool isInterlaced_ = false;
    bool acceptsCut_ = false;
    bool endedEarly_ = false;
    int64_t packets_ = 0;
    int64_t readBytes_ = 0;       // up to the end of the last packet
    int64_t reachedTime_ = 0;     // end of the last packet in time, in units of AV_TIME_BASE
    bool isLastCorrupt_ = false;  // the last packet
    int64_t nextPts_ = 0;         // for a frame without a timestamp
};

/// Size of the frames that `next` gives.
inline FrameArea sizeOf(const VideoReader& video) { return {video.width(), video.height()}; }

/// Timestamps of a video's frames in seconds, in order, by its packets alone: nothing is decoded.
/// Throws MediaError.
std::vector<double> frameTimestamps(const std::string& video);

/// Reads a video by the time since its first frame.
class FrameSeeker {
public:
    /// Throws MediaError.
    explicit FrameSeeker(const std::string& video) : reader_(video) {}

    const VideoReader& reader() const { return reader_; }

    /// The next frame, valid until the next call; null at the end. Throws MediaError.
    const AVFrame* next();

    /// The next frame whose time is `time` or later, or at most half a frame earlier; null if there
    /// is none. Throws MediaError.
    const AVFrame* seek(double time);

    /// Time from the first frame to the last one returned, in seconds.
    double time() const { return time_; }

private:
    VideoReader reader_;
    bool started_ = false;
    double first_ = 0.0;
    double time_ = 0.0;
};

}  // namespace framehold
