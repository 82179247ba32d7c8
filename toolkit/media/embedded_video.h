#pragma once

#include "media/video_encoder.h"

#include <memory>
#include <optional>
#include <string>

namespace framehold {

/// Small video that is kept in memory, to be put into a page. All functions throw MediaError.
class EmbeddedVideo {
public:
    /// settings: of the frames; encoder and container are chosen for browsers: H.264 in MP4, else
    /// VP9 or VP8 in WebM. bitRate: bits per second at most, over about a second. source: see
    /// VideoEncoder.
    EmbeddedVideo(VideoSettings settings, int64_t bitRate, const VideoReader* source = nullptr);

    /// Takes a frame, see VideoWriter::write.
    void write(const AVFrame& frame) { encode(&frame); }

    /// Ends the video and returns it as a "data:" URL.
    std::string finish();

private:
    struct Close {
        void operator()(AVFormatContext* format) const;
    };

    void start();
    void encode(const AVFrame* frame);
    void require(int code, const char* what) const;

    const char* type_ = "";  // for browsers
    std::unique_ptr<AVFormatContext, Close> format_;
    std::optional<VideoEncoder> encoder_;
};

/// Bytes as a "data:" URL. type: as browsers name it.
std::string dataUrl(const char* type, const uint8_t* bytes, int size);

}  // namespace framehold
