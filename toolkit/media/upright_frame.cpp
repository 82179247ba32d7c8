#include "media/upright_frame.h"

#include <cmath>
#include <cstring>

extern "C" {
#include <libavutil/display.h>
}

namespace framehold {

namespace {

/// Turns a plane clockwise by a quarter. Sample: of all components of a pixel.
template <class Sample>
void turnPlane(const AVFrame& from, AVFrame& to, int plane, int width, int height) {
    constexpr auto kSize = static_cast<ptrdiff_t>(sizeof(Sample));
    for (int y = 0; y < height; ++y) {
        const uint8_t* row = from.data[plane] + ptrdiff_t{y} * from.linesize[plane];
        uint8_t* column = to.data[plane] + kSize * (height - 1 - y);
        for (int x = 0; x < width; ++x) {
            std::memcpy(column + ptrdiff_t{x} * to.linesize[plane], row + kSize * x,
                        sizeof(Sample));
        }
    }
}

AvPtr<AVFrame> turnedByQuarter(const AVFrame& frame) {
    AvPtr<AVFrame> turned = makeNv12Frame(frame.height, frame.width);
    if (av_frame_copy_props(turned.get(), &frame) < 0) throw std::bad_alloc();
    turnPlane<uint8_t>(frame, *turned, 0, frame.width, frame.height);
    turnPlane<uint8_t[2]>(frame, *turned, 1, frame.width / 2, frame.height / 2);
    return turned;
}

}  // namespace

int quarterTurns(const VideoReader& video) {
    int32_t matrix[9];
    size_t size = 0;
    const uint8_t* data =
        av_stream_get_side_data(&video.stream(), AV_PKT_DATA_DISPLAYMATRIX, &size);
    if (data == nullptr || size < sizeof matrix) return 0;
    std::memcpy(matrix, data, sizeof matrix);
    // Rows (a, b) and (c, d) of a rotation: a = d and b = -c.
    if (matrix[0] != matrix[4] || int64_t{matrix[1]} + matrix[3] != 0) return 0;
    const double turns = -av_display_rotation_get(matrix) / 90.0;  // that is counterclockwise
    if (!std::isfinite(turns)) return 0;
    const auto whole = static_cast<int>(std::lround(turns));
    return std::abs(turns - whole) < 1e-3 ? (whole + 4) % 4 : 0;
}

AvPtr<AVFrame> turned(const AVFrame& frame, int quarterTurns) {
    AvPtr<AVFrame> result(av_frame_clone(&frame));
    if (!result) throw std::bad_alloc();
    for (int i = 0; i < quarterTurns; ++i) result = turnedByQuarter(*result);
    return result;
}

}  // namespace framehold
