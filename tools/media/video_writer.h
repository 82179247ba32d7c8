#pragma once

#include "common/output_file.h"
#include "media/av_handles.h"
#include "media/video_reader.h"

#include <map>
#include <memory>
#include <string>

namespace framehold {

struct VideoSettings {
    int width = 0;
    int height = 0;
    AVRational timeBase{1, 90000};
    AVRational frameRate{30, 1};
    int quality = 18;               // constant rate factor, 0 (lossless) to 51
    std::string preset = "medium";  // of the encoder: speed against size
};

/// Encodes two-plane 4:2:0 frames as H.264. The file appears under its name when `finish` returns;
/// before that, and if it is never called, there is only a temporary file, which is removed.
/// All functions throw MediaError.
class VideoWriter {
public:
    /// The container follows from the name's extension. With a `source`, its colour tags, sample
    /// aspect, rotation and metadata are taken over, and its audio streams can be copied.
    VideoWriter(const std::string& path, const VideoSettings& settings,
                const VideoReader* source = nullptr);
    ~VideoWriter();
    VideoWriter(const VideoWriter&) = delete;
    VideoWriter& operator=(const VideoWriter&) = delete;

    /// Takes a frame whose pts is in the settings' time base.
    void write(const AVFrame& frame);

    /// Takes a packet of the source; those of streams that are not copied are left out.
    void copyPacket(const AVPacket& packet);

    void finish();

private:
    struct CopiedStream {
        AVStream* stream;
        AVRational sourceTimeBase;
    };

    void openEncoder(const VideoSettings& settings, const VideoReader* source);
    void addVideoStream(const VideoReader* source);
    void copyAudioStreams(const VideoReader& source);
    void encode(const AVFrame* frame);
    void require(int code, const char* what) const;

    OutputFile file_;
    AVFormatContext* format_ = nullptr;
    AvPtr<AVCodecContext> codec_;
    AVStream* stream_ = nullptr;
    AvPtr<AVPacket> packet_;
    std::map<int, CopiedStream> copied_;  // by stream index in the source
};

}  // namespace framehold
