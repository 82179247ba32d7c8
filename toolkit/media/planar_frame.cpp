#include "media/planar_frame.h"

#include <algorithm>
#include <cstring>
#include <vector>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace framehold {

namespace {

bool isChromaOf(const AVPixFmtDescriptor& a, const AVPixFmtDescriptor& b) {
    return a.log2_chroma_w == b.log2_chroma_w && a.log2_chroma_h == b.log2_chroma_h;
}

/// True for formats that hold no luma, which have to be converted.
bool isWithoutLuma(const AVPixFmtDescriptor& d) {
    constexpr uint64_t kFlags = AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_BAYER;
    return (d.flags & kFlags) != 0;
}

/// True for a format of `components` planes without alpha whose samples are whole native words.
bool isPlanar(const AVPixFmtDescriptor& d, int components) {
    constexpr uint64_t kOther = AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_ALPHA |
                                AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_HWACCEL |
                                AV_PIX_FMT_FLAG_BAYER | AV_PIX_FMT_FLAG_FLOAT;
    const uint64_t bytes = AV_NE(AV_PIX_FMT_FLAG_BE, 0);
    const bool isWide = d.comp[0].depth > 8;
    if (d.nb_components != components || (d.flags & kOther) != 0) return false;
    if (isWide && (d.flags & AV_PIX_FMT_FLAG_BE) != bytes) return false;
    for (int i = 0; i < components; ++i) {
        const AVComponentDescriptor& c = d.comp[i];
        if (c.plane != i || c.offset != 0 || c.shift != 0 || c.step != (isWide ? 2 : 1)) {
            return false;
        }
    }
    // The older names of full-range formats: a frame says its range itself.
    return std::strncmp(d.name, "yuvj", 4) != 0;
}

}  // namespace

AVPixelFormat planarFormat(AVPixelFormat format) {
    return planarFormat(format, std::min(depthOf(format), 16));  // of floats, too
}

AVPixelFormat planarFormat(AVPixelFormat format, int depth) {
    const AVPixFmtDescriptor* from = av_pix_fmt_desc_get(format);
    if (from == nullptr || (from->flags & AV_PIX_FMT_FLAG_HWACCEL) != 0) return AV_PIX_FMT_NONE;
    const bool isColour = from->nb_components >= 3 || isWithoutLuma(*from);
    AVPixFmtDescriptor wanted = *from;
    if (!isColour || isWithoutLuma(*from)) wanted.log2_chroma_w = wanted.log2_chroma_h = 0;
    const AVPixFmtDescriptor* best = nullptr;
    for (auto d = av_pix_fmt_desc_next(nullptr); d != nullptr; d = av_pix_fmt_desc_next(d)) {
        if (!isPlanar(*d, isColour ? 3 : 1) || !isChromaOf(*d, wanted)) continue;
        if (d->comp[0].depth < depth) continue;
        if (best == nullptr || d->comp[0].depth < best->comp[0].depth) best = d;
    }
    return best != nullptr ? av_pix_fmt_desc_get_id(best) : AV_PIX_FMT_NONE;
}

int depthOf(AVPixelFormat format) {
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
    return d != nullptr ? d->comp[0].depth : 0;
}

AvPtr<AVFrame> toPlanar(const AVFrame& frame, PixelConverter& converter) {
    const auto from = static_cast<AVPixelFormat>(frame.format);
    const AVPixelFormat format = planarFormat(from);
    if (format == AV_PIX_FMT_NONE) {
        const char* name = av_get_pix_fmt_name(from);
        throw std::runtime_error(std::string("pixels of the format ") +
                                 (name != nullptr ? name : "none") + " cannot be read");
    }
    const AVPixFmtDescriptor& d = *av_pix_fmt_desc_get(from);
    const bool isThere = isPlanar(d, d.nb_components) || std::strncmp(d.name, "yuvj", 4) == 0;
    AvPtr<AVFrame> planar = isThere ? makeFrame() : makeFrame(format, frame.width, frame.height);
    if (isThere && av_frame_ref(planar.get(), &frame) < 0) throw std::bad_alloc();
    if (!isThere && av_frame_copy_props(planar.get(), &frame) < 0) throw std::bad_alloc();
    planar->format = format;
    planar->color_range = isFullRange(frame) ? AVCOL_RANGE_JPEG : frame.color_range;
    if (isThere) return planar;
    if (isWithoutLuma(d) || depthOf(from) < 8 || depthOf(from) > 16) {
        planar->color_range = AVCOL_RANGE_MPEG;
        planar->colorspace = AVCOL_SPC_BT709;
        const FrameArea area{frame.width, frame.height};
        converter.convert(frame, area, *planar, area);
        return planar;
    }
    const int components = av_pix_fmt_desc_get(format)->nb_components;
    const int bytes = depthOf(format) > 8 ? 2 : 1;
    for (int i = 0; i < components; ++i) {
        const int width = i == 0 ? frame.width : AV_CEIL_RSHIFT(frame.width, d.log2_chroma_w);
        const int height = i == 0 ? frame.height : AV_CEIL_RSHIFT(frame.height, d.log2_chroma_h);
        const uint8_t* const planes[] = {frame.data[0], frame.data[1], frame.data[2],
                                         frame.data[3]};
        std::vector<uint16_t> line(static_cast<size_t>(width));
        for (int y = 0; y < height; ++y) {
            uint8_t* row = planar->data[i] + ptrdiff_t{y} * planar->linesize[i];
            av_read_image_line2(line.data(), const_cast<const uint8_t**>(planes), frame.linesize,
                                &d, 0, y, i, width, 0, 2);
            if (bytes == 2) std::memcpy(row, line.data(), line.size() * 2);
            if (bytes == 1) std::copy(line.begin(), line.end(), row);
        }
    }
    return planar;
}

}  // namespace framehold
