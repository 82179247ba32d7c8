#include "media/pixel_converter.h"

#include <tuple>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

namespace framehold {

namespace {

/// Where chroma sits, in 1/256 luma pixels: left, and for half height between two rows.
void setChromaPosition(SwsContext* scaler, AVPixelFormat format, const char* across,
                       const char* down) {
    const AVPixFmtDescriptor* description = av_pix_fmt_desc_get(format);
    if (description->log2_chroma_w == 1) av_opt_set_int(scaler, across, 0, 0);
    if (description->log2_chroma_h == 1) av_opt_set_int(scaler, down, 128, 0);
}

}  // namespace

bool isRgb(AVPixelFormat format) {
    const AVPixFmtDescriptor* description = av_pix_fmt_desc_get(format);
    return description != nullptr && (description->flags & AV_PIX_FMT_FLAG_RGB) != 0;
}

bool PixelConverter::Task::operator==(const Task& other) const {
    const auto all = [](const Task& t) {
        return std::tuple(t.from.width, t.from.height, t.to.width, t.to.height, t.fromFormat,
                          t.toFormat, t.fromFullRange, t.toFullRange, t.matrix);
    };
    return all(*this) == all(other);
}

bool PixelConverter::Task::isCopy() const {
    return from.width == to.width && from.height == to.height && fromFormat == toFormat &&
           fromFullRange == toFullRange;
}

AvPtr<SwsContext> PixelConverter::makeScaler(const Task& task) {
    AvPtr<SwsContext> scaler(sws_alloc_context());
    if (!scaler) throw std::bad_alloc();
    const auto set = [&](const char* name, int value) {
        av_opt_set_int(scaler.get(), name, value, 0);
    };
    set("srcw", task.from.width);
    set("srch", task.from.height);
    set("src_format", task.fromFormat);
    set("dstw", task.to.width);
    set("dsth", task.to.height);
    set("dst_format", task.toFormat);
    set("sws_flags", SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP);
    setChromaPosition(scaler.get(), task.fromFormat, "src_h_chr_pos", "src_v_chr_pos");
    setChromaPosition(scaler.get(), task.toFormat, "dst_h_chr_pos", "dst_v_chr_pos");
    if (sws_init_context(scaler.get(), nullptr, nullptr) < 0) {
        throw std::runtime_error(std::string("pixels cannot be converted from ") +
                                 av_get_pix_fmt_name(task.fromFormat) + " to " +
                                 av_get_pix_fmt_name(task.toFormat));
    }
    // The numbers of matrices are the same in both enumerations.
    const int* coefficients = sws_getCoefficients(task.matrix);
    sws_setColorspaceDetails(scaler.get(), coefficients, task.fromFullRange ? 1 : 0, coefficients,
                             task.toFullRange ? 1 : 0, 0, 1 << 16, 1 << 16);
    return scaler;
}

void PixelConverter::convert(const AVFrame& from, FrameArea fromArea, AVFrame& to,
                             FrameArea toArea) {
    const auto fromFormat = static_cast<AVPixelFormat>(from.format);
    const Task task{fromArea,
                    toArea,
                    fromFormat,
                    static_cast<AVPixelFormat>(to.format),
                    isFullRange(from),
                    isFullRange(to),
                    isRgb(fromFormat) ? to.colorspace : from.colorspace};
    if (task.isCopy()) {
        // libswscale leaves out the chroma of two-plane pictures where it has only to copy.
        const uint8_t* planes[] = {from.data[0], from.data[1], from.data[2], from.data[3]};
        av_image_copy(to.data, to.linesize, planes, from.linesize, fromFormat, fromArea.width,
                      fromArea.height);
        return;
    }
    if (!scaler_ || !(task == task_)) {
        scaler_ = makeScaler(task);
        task_ = task;
    }
    sws_scale(scaler_.get(), from.data, from.linesize, 0, fromArea.height, to.data, to.linesize);
}

}  // namespace framehold
