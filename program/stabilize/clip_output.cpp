#include "stabilize/clip_output.h"

#include "compare/side_by_side.h"

#include <fmt/format.h>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace framehold {

namespace {

PictureSize sizeOfResult(const StabilizeOptions& options, const VideoReader& source) {
    if (options.sideBySide) {
        const int right = options.clip.outputSize ? options.clip.outputSize->width : source.width();
        return {source.width() + kDivider + right, source.height()};
    }
    if (options.clip.outputSize) return *options.clip.outputSize;
    return {source.contentWidth(), source.contentHeight()};
}

VideoSettings codingOf(const StabilizeOptions& options) {
    VideoSettings settings;
    settings.encoder = options.encoder;
    settings.pixelFormat = options.pixelFormat;
    settings.quality = options.quality;
    settings.preset = options.preset;
    return settings;
}

VideoSettings settingsFor(const StabilizeOptions& options, const VideoReader& source) {
    VideoSettings settings = codingOf(options);
    const PictureSize size = sizeOfResult(options, source);
    settings.width = size.width;
    settings.height = size.height;
    settings.timeBase = source.timeBase();
    settings.frameRate = source.frameRate();
    return settings;
}

/// True if pixels of a format hold more than the library keeps, which works in 8 bits and 4:2:0.
bool holdsMore(AVPixelFormat format) {
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
    if (d == nullptr) return false;
    const bool hasColour = d->nb_components >= 3;
    return d->comp[0].depth > 8 || (hasColour && (d->log2_chroma_w < 1 || d->log2_chroma_h < 1)) ||
           (d->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
}

}  // namespace

void checkEncoding(const StabilizeOptions& options) {
    tryEncoder(options.output, codingOf(options));
}

ClipOutput::ClipOutput(const StabilizeOptions& options, const VideoReader& source)
    : source_(source), isSideBySide_(options.sideBySide), settings_(settingsFor(options, source)),
      writer_({options.output, options.overwrites}, settings_, &source) {}

void ClipOutput::announce(RunMessages& messages) const {
    const AVCodecContext& codec = writer_.codec();
    const AVPixelFormat from = source_.codec().pix_fmt;
    if (holdsMore(from)) {
        messages.note(
            fmt::format("pixels come in as {}, are stabilized in 8 bits and 4:2:0, and "
                        "go out as {}",
                        av_get_pix_fmt_name(from), av_get_pix_fmt_name(codec.pix_fmt)));
    }
    if (codec.width != settings_.width || codec.height != settings_.height) {
        messages.note(
            fmt::format("{}x{} goes out as {}x{}, the last column or row twice: {} in {} "
                        "has no odd sizes",
                        settings_.width, settings_.height, codec.width, codec.height,
                        codec.codec->name, av_get_pix_fmt_name(codec.pix_fmt)));
    }
    for (const std::string& loss : writer_.losses()) messages.warn(loss);
}

void ClipOutput::write(const AVFrame& stable, const AVFrame& original) {
    writer_.write(isSideBySide_ ? *sideBySide(original, stable) : stable);
}

}  // namespace framehold
