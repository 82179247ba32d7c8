#include "media/libav.h"

#include "common/image_sequence.h"
#include "common/interruption.h"
#include "common/output_file.h"
#include "common/text_fields.h"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <new>
#include <string_view>

#include <fmt/format.h>

extern "C" {
#include <libavutil/log.h>
}

namespace framehold {

namespace {

thread_local std::string lastMessage;
std::atomic<double> sequenceRate{0.0};

void keep(void*, int level, const char* format, va_list arguments) {
    if (level > AV_LOG_ERROR) return;
    char text[256];
    std::vsnprintf(text, sizeof text, format, arguments);
    lastMessage = text;
    lastMessage.erase(lastMessage.find_last_not_of(". \r\n") + 1);
}

}  // namespace

void keepLibavMessages() {
    av_log_set_callback(keep);
    // SVT-AV1 prints messages of its own; 1 stands for errors only.
    setenv("SVT_LOG", "1", 0);
}

void forgetLibavMessage() { lastMessage.clear(); }

std::string libavMessage() { return lastMessage.empty() ? "" : " (" + escaped(lastMessage) + ")"; }

namespace {

std::string describe(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

int stopsWaiting(void*) { return isInterrupted() ? 1 : 0; }

template <class T>
AvPtr<T> owned(T* p) {
    if (p == nullptr) throw std::bad_alloc();
    return AvPtr<T>(p);
}

}  // namespace

MediaError::MediaError(const std::string& file, const std::string& what)
    : std::runtime_error(fmt::format("{}: {}", escaped(file), what)) {}

MediaError::MediaError(const std::string& file, const std::string& what, int code)
    : MediaError(file, fmt::format("{}: {}", what, describe(code))) {}

namespace {

/// Containers, bare video streams and pictures. Missing are playlists (hls, dash, concat, ...), which
/// make FFmpeg open other files, and all that has no pictures.
constexpr const char* kFormats =
    "asf,av1,avi,avs2,cavsvideo,dirac,dnxhd,dv,flv,gif,h261,h263,h264,hevc,image2,ivf,m4v,matroska,"
    "mjpeg,mov,mpeg,mpegts,mpegtsraw,mpegvideo,mxf,nut,obu,ogg,rm,vc1,webp,yuv4mpegpipe,"
    "bmp_pipe,jpeg_pipe,jpegls_pipe,png_pipe,tiff_pipe,webp_pipe";

/// Limits what is read to the file itself; the caller frees the options.
AVDictionary* inputLimits(bool isPipe) {
    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", isPipe ? "pipe" : "file", 0);
    av_dict_set(&options, "format_whitelist", kFormats, 0);
    return options;
}

}  // namespace

std::string fileUrl(const std::string& path) { return "file:" + path; }

std::string pathOf(const AVFormatContext& file) {
    const std::string_view url = file.url;
    const std::string prefix = fileUrl("");
    return std::string(url.substr(0, prefix.size()) == prefix ? url.substr(prefix.size()) : "");
}

void setSequenceRate(double framesPerSecond) { sequenceRate = framesPerSecond; }

namespace {

/// What is opened, and how.
struct Source {
    std::string url;
    const AVInputFormat* format = nullptr;  // null: by the content
    AVDictionary* options = nullptr;        // freed by the caller
};

Source sequenceSource(const ImageSequence& sequence) {
    Source source;
    // FFmpeg looks for the number in the folder's name, too.
    source.url = fileUrl("");
    for (const char c : sequence.folder)
        source.url += c == '%' ? std::string("%%") : std::string(1, c);
    source.url += sequence.pattern;
    source.format = av_find_input_format("image2");
    source.options = inputLimits(false);
    av_dict_set(&source.options, "pattern_type", "sequence", 0);
    av_dict_set_int(&source.options, "start_number", sequence.first, 0);
    av_dict_set(&source.options, "framerate", fmt::format("{:.10g}", sequenceRate.load()).c_str(),
                0);
    return source;
}

Source sourceOf(const std::string& path) {
    if (path == "-") return {"pipe:0", nullptr, inputLimits(true)};
    if (const auto sequence = findImageSequence(path)) {
        if (sequenceRate > 0.0) return sequenceSource(*sequence);
        throw MediaError(path, "is an image sequence, whose frames per second must be given");
    }
    Source source{fileUrl(path), nullptr, inputLimits(false)};
    // A picture whose name is like the pattern of a sequence.
    av_dict_set(&source.options, "pattern_type", "none", 0);
    return source;
}

}  // namespace

namespace {

/// Throws MediaError if a file that cannot be read, for which code is below 0, is a zip archive.
void refuseArchive(const std::string& path, int code) {
    if (code >= 0 || isSpecialFile(path)) return;
    std::array<char, 4> head{};
    std::ifstream(path, std::ios::binary).read(head.data(), head.size());
    if (!startsAsArchive({head.data(), head.size()})) return;
    throw MediaError(
        path,
        "is a zip archive: unpack the video that it may hold; --motion takes logs in an "
        "archive as they are");
}

}  // namespace

AvInput openContainer(const std::string& path, bool readsAll) {
    const bool isPipe = path == "-";
    Source source = sourceOf(path);
    AVFormatContext* format = avformat_alloc_context();
    if (format == nullptr) throw std::bad_alloc();
    format->interrupt_callback = {stopsWaiting, nullptr};
    if (readsAll) av_dict_set(&source.options, "advanced_editlist", "0", 0);
    forgetLibavMessage();
    const int code =
        avformat_open_input(&format, source.url.c_str(), source.format, &source.options);
    av_dict_free(&source.options);
    throwIfInterrupted();
    if (code < 0 && lastMessage.find("not on whitelist") != std::string::npos) {
        throw MediaError(path,
                         "is no video, or a list of other files, such as a playlist, which is not "
                         "opened");
    }
    if (code < 0 && isPipe) {
        throw MediaError("standard input",
                         "is no video that can be read from a pipe (YUV4MPEG2 can, Matroska, "
                         "transport streams and MP4 made for streaming)" +
                             libavMessage());
    }
    refuseArchive(path, code);
    if (code == AVERROR_INVALIDDATA && lastMessage.empty()) {
        throw MediaError(path, "is no video that can be read");
    }
    if (code < 0) throw MediaError(path, "cannot be opened" + libavMessage(), code);
    return AvInput(format);
}

void readStreamInfo(AVFormatContext& file, const std::string& path) {
    const int code = avformat_find_stream_info(&file, nullptr);
    throwIfInterrupted();
    refuseArchive(path, code);
    if (code < 0) throw MediaError(path, "cannot be read", code);
}

AvInput openInput(const std::string& path) {
    AvInput input = openContainer(path);
    readStreamInfo(*input, path);
    return input;
}

AvPtr<AVFrame> makeFrame() { return owned(av_frame_alloc()); }

AvPtr<AVPacket> makePacket() { return owned(av_packet_alloc()); }

AvPtr<AVFrame> makeFrame(AVPixelFormat format, int width, int height) {
    AvPtr<AVFrame> frame = makeFrame();
    frame->format = format;
    frame->width = width;
    frame->height = height;
    if (av_frame_get_buffer(frame.get(), 0) < 0) throw std::bad_alloc();
    return frame;
}

bool isFullRange(const AVFrame& frame) {
    switch (frame.format) {
        case AV_PIX_FMT_YUVJ420P:
        case AV_PIX_FMT_YUVJ422P:
        case AV_PIX_FMT_YUVJ444P:
        case AV_PIX_FMT_YUVJ440P:
        case AV_PIX_FMT_YUVJ411P:
            return true;
        default:
            return frame.color_range == AVCOL_RANGE_JPEG;
    }
}

Levels levelsOf(const AVFrame& frame) {
    return isFullRange(frame) ? Levels{0, 255} : Levels{16, 235};
}

}  // namespace framehold
