#include "bench/fixture.h"

#include "support/test_instance.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace framehold::bench {

namespace {

constexpr int kTransforms = 16;
constexpr double kDegree = 3.14159265358979323846 / 180.0;

/// A sine along x or y, tabulated.
std::vector<double> wave(int32_t count, double length, double phase) {
    std::vector<double> values(static_cast<size_t>(count));
    for (size_t i = 0; i < values.size(); ++i) {
        values[i] = 60.0 * std::sin(static_cast<double>(i) / length + phase);
    }
    return values;
}

}  // namespace

void drawWaves(zpr_test::Frame& frame, double phase) {
    const ZPR_Image& image = frame.image;
    const std::vector<double> across = wave(image.width, 9.0, phase);
    const std::vector<double> down = wave(image.height + image.height / 2, 13.0, phase);
    auto y = down.begin();
    for (int plane = 0; plane < 2; ++plane) {
        uint8_t* byte = image.plane[plane];
        for (int row = image.height >> plane; row > 0; --row, ++y) {
            for (const double x : across) *byte++ = static_cast<uint8_t>(128.0 + x + *y);
        }
    }
}

FrameRing::FrameRing(Size size, int count) {
    for (int i = 0; i < count; ++i) {
        frames_.emplace_back(size.width, size.height);
        drawWaves(frames_.back(), i);
    }
}

Point AffineTransform::sourceOf(double x, double y) const {
    const double dx = zoom * (x - centre.x);
    const double dy = zoom * (y - centre.y);
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    return {centre.x + shift.x + c * dx - s * dy + shear * (y - centre.y),
            centre.y + shift.y + s * dx + c * dy};
}

std::vector<AffineTransform> makeTransforms(Size size, double maxDegrees, int count) {
    constexpr double kTapReach = 2.0;
    constexpr double kLargestShift = 8.0;
    zpr_test::Random random(7);
    std::vector<AffineTransform> transforms;
    for (int i = 0; i < count; ++i) {
        const Point centre{(size.width - 1) / 2.0, (size.height - 1) / 2.0};
        AffineTransform transform{maxDegrees * kDegree * random.uniform(-1.0, 1.0), 0.93,
                                  0.01 * random.uniform(-1.0, 1.0), Point{0.0, 0.0}, centre};
        if (i == 0) transform.shear = 0.0;
        Point reach{0.0, 0.0};
        for (const double x : {0.0, 2.0 * centre.x}) {
            for (const double y : {0.0, 2.0 * centre.y}) {
                const Point corner = transform.sourceOf(x, y);
                reach.x = std::max(reach.x, std::fabs(corner.x - centre.x));
                reach.y = std::max(reach.y, std::fabs(corner.y - centre.y));
            }
        }
        const auto shift = [&](double room) {
            return std::clamp(room - kTapReach, 0.0, kLargestShift) * random.uniform(-1.0, 1.0);
        };
        transform.shift = {shift(centre.x - reach.x), shift(centre.y - reach.y)};
        transforms.push_back(transform);
    }
    return transforms;
}

ZPR_Param makeParam(Size size, int delayFrames) {
    ZPR_Param param = zpr_test::makeParam(size.width, size.height);
    param.delayFrames = delayFrames;
    return param;
}

Fixture::Fixture(Size size, int threads, int ring)
    : size_(size), threads_(threads), sources_(size, ring), targets_(size, ring),
      shaken_(makeTransforms(size, 2.0, kTransforms)),
      steady_(makeTransforms(size, 0.3, kTransforms)) {
    if (threads > 1) {
        pool_.reset(
            qlx::zpr_framehold::WorkerPool::create(nullptr, static_cast<unsigned>(threads)));
        if (pool_ == nullptr) throw std::runtime_error("no memory or threads for a pool");
    }
}

}  // namespace framehold::bench
