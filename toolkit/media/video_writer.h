#pragma once

#include "common/output_file.h"
#include "media/libav.h"
#include "media/stream_copier.h"
#include "media/video_encoder.h"
#include "media/video_reader.h"

#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Encodes frames of one pixel format into a file. The file appears under its name when `finish`
/// returns; before that, and if it is never called, there is only a temporary file, which is
/// removed. All functions throw MediaError.
class VideoWriter {
public:
    /// name: its extension gives the container; "-" is a YUV4MPEG2 stream on standard output. With a
    /// `source`, its colour tags, sample aspect ratio, rotation, metadata and chapters are taken
    /// over, and its other streams can be copied. HDR frames of more than 8 bits are not encoded in 8
    /// unless the settings name that pixel format.
    VideoWriter(const OutputName& name, const VideoSettings& settings,
                const VideoReader* source = nullptr);
    ~VideoWriter();
    VideoWriter(const VideoWriter&) = delete;
    VideoWriter& operator=(const VideoWriter&) = delete;

    /// Parts of the source that are left out, each a sentence for the user.
    std::vector<std::string> losses() const;

    const AVCodecContext& codec() const { return encoder_->codec(); }

    /// Takes a frame whose pts is in the settings' time base, of the settings' size rounded up to
    /// even; or of the size in codec().
    void write(const AVFrame& frame) { encode(&frame); }

    /// Takes a packet of the source; those of streams that are not copied are left out.
    void copyPacket(const AVPacket& packet);

    /// Ends the file and gives it its name. Throws std::runtime_error where that does not work.
    void finish();

private:
    void start(const VideoSettings& settings, const VideoReader* source);
    void addVideoStream(const VideoReader* source);
    void copySideData(const VideoReader& source);
    void close();
    void encode(const AVFrame* frame);
    void require(int code, const char* what) const;

    std::string name_;                // of the result, for messages
    std::optional<OutputFile> file_;  // none: standard output
    AVFormatContext* format_ = nullptr;
    std::optional<VideoEncoder> encoder_;
    AVStream* stream_ = nullptr;
    std::optional<StreamCopier> copier_;
    std::vector<std::string> losses_;
};

}  // namespace framehold
