#include "compare/side_by_side.h"

#include <algorithm>

namespace framehold {

AvPtr<AVFrame> sideBySide(const AVFrame& left, const AVFrame& right) {
    const Levels levels = levelsOf(left);
    AvPtr<AVFrame> both = makeNv12Frame(left.width + kDivider + right.width, left.height);
    for (int plane = 0; plane < 2; ++plane) {
        const int rightRows = right.height >> plane;
        const uint8_t white = plane == 0 ? levels.white : Levels::kNoChroma;
        const uint8_t black = plane == 0 ? levels.black : Levels::kNoChroma;
        for (int y = 0; y < both->height >> plane; ++y) {
            const auto row = [&](const AVFrame& frame) {
                return frame.data[plane] + ptrdiff_t{y} * frame.linesize[plane];
            };
            uint8_t* out = std::copy_n(row(left), left.width, row(*both));
            out = std::fill_n(out, kDivider, white);
            if (y < rightRows) {
                std::copy_n(row(right), right.width, out);
            } else {
                std::fill_n(out, right.width, black);
            }
        }
    }
    both->color_range = left.color_range;
    both->colorspace = left.colorspace;
    both->pts = right.pts;
    both->pkt_duration = right.pkt_duration;
    return both;
}

}  // namespace framehold
