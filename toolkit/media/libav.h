#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

namespace framehold {

/// Error with a video file. The text starts with the name of the file.
class MediaError : public std::runtime_error {
public:
    MediaError(const std::string& file, const std::string& what);
    /// code: an error code of FFmpeg's libraries, whose text is added.
    MediaError(const std::string& file, const std::string& what, int code);
};

/// Frees what FFmpeg's libraries allocate.
struct AvDeleter {
    void operator()(AVCodecContext* p) const { avcodec_free_context(&p); }
    void operator()(AVFrame* p) const { av_frame_free(&p); }
    void operator()(AVPacket* p) const { av_packet_free(&p); }
    void operator()(SwsContext* p) const { sws_freeContext(p); }
};

struct CloseInput {
    void operator()(AVFormatContext* p) const { avformat_close_input(&p); }
};

/// Open file with its streams.
using AvInput = std::unique_ptr<AVFormatContext, CloseInput>;

/// Path as FFmpeg's libraries take it, whatever characters are in it.
std::string fileUrl(const std::string& path);

/// Path of an open file; empty for one that is not, such as standard input.
std::string pathOf(const AVFormatContext& file);

/// Sets the frames per second of all image sequences that are opened from now on: their files do not
/// say it. Greater than 0.
void setSequenceRate(double framesPerSecond);

/// Opens a file and looks for its streams. path: a file of a container that holds its streams
/// itself, as opposed to lists of other files; the pattern of an image sequence, see
/// findImageSequence; or "-", standard input, if its container can be read from a pipe. Nothing but
/// these files is read. Waiting for data ends when the program is interrupted.
/// Throws MediaError and Interrupted.
AvInput openInput(const std::string& path);

// The two steps of openInput, for what needs only the first one.
// readsAll: in MP4 and MOV also what is before the part of a track that players show.
AvInput openContainer(const std::string& path, bool readsAll = false);
void readStreamInfo(AVFormatContext& file, const std::string& path);

template <class T>
using AvPtr = std::unique_ptr<T, AvDeleter>;

// These throw std::bad_alloc.
AvPtr<AVFrame> makeFrame();
AvPtr<AVPacket> makePacket();

/// A frame with buffers of its own, not filled in.
AvPtr<AVFrame> makeFrame(AVPixelFormat format, int width, int height);

/// A two-plane 4:2:0 frame with buffers of its own, not filled in.
inline AvPtr<AVFrame> makeNv12Frame(int width, int height) {
    return makeFrame(AV_PIX_FMT_NV12, width, height);
}

/// True if a frame's levels use the full range of its samples, by its pixel format or color_range.
bool isFullRange(const AVFrame& frame);

/// Sample values of 8-bit frames.
struct Levels {
    static constexpr uint8_t kNoChroma = 128;

    uint8_t black;
    uint8_t white;
};

/// Levels by the frame's range.
Levels levelsOf(const AVFrame& frame);

/// Makes FFmpeg's libraries print nothing from now on. Their last error message on each thread is
/// kept, since it often has more than their codes.
void keepLibavMessages();

/// Forgets the message that was kept on this thread.
void forgetLibavMessage();

/// Message that was kept on this thread, as " (message)"; empty if there is none.
std::string libavMessage();

}  // namespace framehold
