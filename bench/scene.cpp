#include "bench/scene.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace framehold::bench {

namespace fh = qlx::zpr_framehold;

namespace {

constexpr double kDegree = 3.14159265358979323846 / 180.0;

/// From -1 to 1; the same on every platform, unlike the standard distributions.
double symmetric(std::mt19937& random) {
    return static_cast<double>(random()) / 2147483648.0 - 1.0;
}

/// Sines along x and y, tabulated: a picture on which a wrong position shows in every pixel.
std::vector<double> wave(int32_t count, double length, double phase) {
    std::vector<double> values(static_cast<size_t>(count));
    for (size_t i = 0; i < values.size(); ++i) {
        values[i] = 60.0 * std::sin(static_cast<double>(i) / length + phase);
    }
    return values;
}

}  // namespace

Frame::Frame(Size size, double phase) : bytes_(size.frameBytes()) {
    uint8_t* luma = bytes_.data();
    uint8_t* chroma = luma + size.pixels();
    image_ = {ZPR_FORMAT_SEMIPLANAR_1,
              size.width,
              size.height,
              {luma, chroma, nullptr, nullptr},
              {size.width, size.width, 0, 0}};
    const std::vector<double> across = wave(size.width, 9.0, phase);
    const std::vector<double> down = wave(size.height + size.height / 2, 13.0, phase);
    uint8_t* byte = luma;
    for (const double y : down) {
        for (const double x : across) *byte++ = static_cast<uint8_t>(128.0 + x + y);
    }
}

FrameRing::FrameRing(Size size, int count) {
    frames_.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) frames_.emplace_back(size, i);
}

Point Motion::sourceOf(double x, double y) const {
    const double dx = zoom * (x - centre.x);
    const double dy = zoom * (y - centre.y);
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    return {centre.x + shift.x + c * dx - s * dy + shear * (y - centre.y),
            centre.y + shift.y + s * dx + c * dy};
}

std::vector<Motion> makeMotions(Size size, double maxDegrees, int count) {
    constexpr double kTapReach = 2.0;
    constexpr double kLargestShift = 8.0;
    std::mt19937 random(7);
    std::vector<Motion> motions;
    for (int i = 0; i < count; ++i) {
        const Point centre{(size.width - 1) / 2.0, (size.height - 1) / 2.0};
        Motion motion{maxDegrees * kDegree * symmetric(random), 0.93, 0.01 * symmetric(random),
                      Point{0.0, 0.0}, centre};
        if (i == 0) motion.shear = 0.0;
        Point reach{0.0, 0.0};
        for (const double x : {0.0, 2.0 * centre.x}) {
            for (const double y : {0.0, 2.0 * centre.y}) {
                const Point corner = motion.sourceOf(x, y);
                reach.x = std::max(reach.x, std::fabs(corner.x - centre.x));
                reach.y = std::max(reach.y, std::fabs(corner.y - centre.y));
            }
        }
        const auto shift = [&](double room) {
            return std::clamp(room - kTapReach, 0.0, kLargestShift) * symmetric(random);
        };
        motion.shift = {shift(centre.x - reach.x), shift(centre.y - reach.y)};
        motions.push_back(motion);
    }
    return motions;
}

MeshCorrection::MeshCorrection(Size size, const Motion& motion) {
    const uint32_t rows = fh::meshNodes(size.height);
    const uint32_t cols = fh::meshNodes(size.width);
    mesh_.resize(rows * cols);
    fh::MeshPoint* node = mesh_.writable();
    for (uint32_t row = 0; row < rows; ++row) {
        for (uint32_t col = 0; col < cols; ++col) {
            const auto along = [](uint32_t i, int32_t length) {
                return std::min(static_cast<int32_t>(i) * fh::kMeshStep, length - 1);
            };
            const Point p = motion.sourceOf(along(col, size.width), along(row, size.height));
            *node++ = {p.x, p.y};
        }
    }
    correction_.resize(1);
    correction_.writable()[0].mesh = &mesh_;
}

ZPR_Param makeParam(Size size, int delayFrames) {
    ZPR_Param param{};
    ZPR_GetDefaultParam(&param);
    param.inputImage = {
        ZPR_FORMAT_SEMIPLANAR_1, size.width, size.height, {}, {size.width, size.width, 0, 0}};
    param.outputImage = param.inputImage;
    param.sensorMask = ZPR_SENSOR_BIT(ZPR_SENSOR_GRAVITY_1) | ZPR_SENSOR_BIT(ZPR_SENSOR_RATE_1);
    param.timeOffset = 0.0;
    param.delayFrames = delayFrames;
    return param;
}

}  // namespace framehold::bench
