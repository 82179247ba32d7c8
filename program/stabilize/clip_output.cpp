#include "stabilize/clip_output.h"

#include "common/output_file.h"
#include "compare/side_by_side.h"

#include <memory>
#include <new>

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
    for (const std::string& option : options.encoderOptions) {
        const size_t equals = option.find('=');
        settings.encoderOptions[option.substr(0, equals)] = option.substr(equals + 1);
    }
    return settings;
}

VideoSettings settingsFor(const StabilizeOptions& options, const VideoReader& source,
                          const HdrMetadata& hdr) {
    VideoSettings settings = codingOf(options);
    const PictureSize size = sizeOfResult(options, source);
    settings.width = size.width;
    settings.height = size.height;
    settings.hdr = hdr;
    if (keepsPixels(options)) settings.frameFormat = source.planarFormat();
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

constexpr size_t kWaiting = 4;  // frames and packets, before the run waits for the encoder

std::shared_ptr<AVFrame> keep(const AVFrame& frame) {
    std::shared_ptr<AVFrame> kept(av_frame_clone(&frame), AvDeleter());
    if (!kept) throw std::bad_alloc();
    return kept;
}

}  // namespace

void checkEncoding(const StabilizeOptions& options) {
    tryEncoder(options.output, codingOf(options));
}

void checkOutput(const StabilizeOptions& options, const VideoReader& source) {
    const std::string& file = options.output;
    tryEncoder(file, settingsFor(options, source, {}), &source);
    if (file == "-" || isSpecialFile(file)) return;  // a pipe's reader would see it end
    const OutputFile made({file, options.overwrites});
}

ClipOutput::ClipOutput(const StabilizeOptions& options, const VideoReader& source,
                       const HdrMetadata& hdr)
    : source_(source), isSideBySide_(options.sideBySide),
      settings_(settingsFor(options, source, hdr)),
      writer_({options.output, options.overwrites}, settings_, &source), thread_(kWaiting) {}

void ClipOutput::announce(RunMessages& messages) const {
    const AVCodecContext& codec = writer_.codec();
    const AVPixelFormat from = source_.codec().pix_fmt;
    if (settings_.frameFormat == AV_PIX_FMT_NV12 && holdsMore(from)) {
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

void ClipOutput::write(const AVFrame& stable, const AVFrame* original) {
    const std::shared_ptr<AVFrame> keptStable = keep(stable);
    const std::shared_ptr<AVFrame> keptOriginal = isSideBySide_ ? keep(*original) : nullptr;
    thread_.add([this, keptStable, keptOriginal] { encode(*keptStable, keptOriginal.get()); });
}

void ClipOutput::copyPacket(const AVPacket& packet) {
    const std::shared_ptr<AVPacket> kept(av_packet_clone(&packet), AvDeleter());
    if (!kept) throw std::bad_alloc();
    thread_.add([this, kept] { writer_.copyPacket(*kept); });
}

void ClipOutput::finish() {
    thread_.finish();
    writer_.finish();
}

void ClipOutput::encode(const AVFrame& stable, const AVFrame* original) {
    if (!isSideBySide_) return writer_.write(stable);
    if (stable.format == AV_PIX_FMT_NV12) return writer_.write(*sideBySide(*original, stable));
    const FrameArea area{stable.width, stable.height};
    AvPtr<AVFrame> twoPlane = makeNv12Frame(area.width, area.height);
    av_frame_copy_props(twoPlane.get(), &stable);
    converter_.convert(stable, area, *twoPlane, area);
    writer_.write(*sideBySide(*original, *twoPlane));
}

}  // namespace framehold
