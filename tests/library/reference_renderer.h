#pragma once

#include "zpr_framehold.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

namespace zpr_test {

struct ReferencePoint {
    double x, y;
};

/// Slow scalar renderer that the real one is compared with, byte for byte; written apart from it.
/// Every position is reckoned from the block's corners; every source byte comes through `tap`. All
/// sizes and the target's height are even. Block spans survive from one call to the next.
class ReferenceRenderer {
public:
    ReferenceRenderer(int inWidth, int inHeight, int outWidth, int outHeight)
        : inWidth_(inWidth), inHeight_(inHeight), outWidth_(outWidth), outHeight_(outHeight),
          cols_((outWidth + kBlock - 1) / kBlock), rows_((outHeight + kBlock - 1) / kBlock),
          spans_(static_cast<size_t>(cols_ * rows_)) {}

    /// mesh: a node for each block corner, row by row.
    void render(const ZPR_Image& source, const ZPR_Image& target,
                const std::vector<ReferencePoint>& mesh) {
        const auto node = [&](int64_t i, int64_t j) {
            return mesh.at(static_cast<size_t>(i * (cols_ + 1) + j));
        };
        for (int64_t row = 0; row < rows_; ++row) {
            // The last mesh row lies on the last pixel row, the offsets are wanted at the block's
            // edge.
            const bool partial = row == rows_ - 1 && kBlock * rows_ != outHeight_;
            const auto meshHeight = static_cast<double>(outHeight_ - 1 - kBlock * row);
            std::vector<Corners> corners(static_cast<size_t>(cols_));
            for (int64_t col = 0; col < cols_; ++col) {
                for (int64_t k = 0; k < 4; ++k) {
                    const int64_t i = row + k / 2, j = col + k % 2;
                    ReferencePoint point = node(i, j);
                    if (partial && i == row + 1) {
                        const ReferencePoint top = node(row, j);
                        point.x = top.x + (point.x - top.x) * 128.0 / meshHeight;
                        point.y = top.y + (point.y - top.y) * 128.0 / meshHeight;
                    }
                    corners[static_cast<size_t>(col)][static_cast<size_t>(k)] = {
                        axisOffset(point.x, kBlock * j), axisOffset(point.y, kBlock * i)};
                }
                updateSpan(row, col, corners[static_cast<size_t>(col)]);
            }
            renderRow(source, target, row, corners);
        }
    }

private:
    static constexpr int64_t kBlock = 128;
    static constexpr int64_t kSub = 16;  // corner positions are in 1/16 pixel
    static constexpr int kShift = 18;    // fractional bits of the running offsets

    /// Source minus output position, in 1/16 pixel.
    struct Offset {
        int64_t x, y;
    };
    using Corners = std::array<Offset, 4>;  // top-left, top-right, bottom-left, bottom-right
    /// Block-local output pixels, the ends exclusive.
    struct Span {
        int64_t xStart = 0, yStart = 0, xEnd = 0, yEnd = 0;
    };

    static int64_t axisOffset(double sourcePosition, int64_t outputPosition) {
        constexpr int64_t kMaxOffset = int64_t{1} << 22;
        const double scaled = std::trunc(sourcePosition * 16.0);
        const double limited =
            std::isnan(scaled) ? 0.0 : std::clamp(scaled, -2147483648.0, 2147483647.0);
        return std::clamp(static_cast<int64_t>(limited) - kSub * outputPosition, -kMaxOffset,
                          kMaxOffset);
    }

    /// First output step at which an edge going up from `from` to `to` has reached 0.
    static int64_t firstInside(int64_t from, int64_t to) {
        return from < 0 ? (-from * kBlock + to - from - 1) / (to - from) : 0;
    }

    /// Last output step at which that edge is still below the limit, at most `most`.
    static int64_t lastInside(int64_t from, int64_t to, int64_t limit, int64_t most) {
        if (to < limit) return most;
        int64_t step = (limit - from) * kBlock / (to - from);
        while (step * (to - from) >= (limit - from) * kBlock) --step;
        return std::min(step, most);
    }

    Span& spanOf(int64_t row, int64_t col) {
        return spans_.at(static_cast<size_t>(cols_ * row + col));
    }

    /// Leaves the span alone when the block is folded or has nothing inside the source.
    void updateSpan(int64_t row, int64_t col, const Corners& corners) {
        const int64_t width = std::min(kBlock, outWidth_ - kBlock * col);
        const int64_t height = std::min(kBlock, outHeight_ - kBlock * row);
        const auto x = [&](size_t k, int64_t j) { return kSub * kBlock * j + corners[k].x; };
        const auto y = [&](size_t k, int64_t i) { return kSub * kBlock * i + corners[k].y; };
        const int64_t x0 = x(0, col), x1 = x(1, col + 1), x2 = x(2, col), x3 = x(3, col + 1);
        const int64_t y0 = y(0, row), y1 = y(1, row), y2 = y(2, row + 1), y3 = y(3, row + 1);
        if (x0 >= x1 || y1 >= y3 || y0 >= y2 || x2 >= x3) return;
        const int64_t maxX = kSub * (inWidth_ - 1), maxY = kSub * (inHeight_ - 1);
        Span s;
        s.xStart = std::max(firstInside(x0, x1), firstInside(x2, x3));
        s.yStart = std::max(firstInside(y0, y2), firstInside(y1, y3));
        s.xEnd =
            1 + std::min(lastInside(x0, x1, maxX, width - 1), lastInside(x2, x3, maxX, width - 1));
        s.yEnd = 1 + std::min(lastInside(y0, y2, maxY, height - 1),
                              lastInside(y1, y3, maxY, height - 1));
        if ((x1 >= maxX || x3 >= maxX) && s.xEnd % 4 == 0) --s.xEnd;
        const bool empty = s.yEnd <= s.yStart || s.yEnd <= 0 || height <= s.yStart ||
                           width <= s.xStart || s.xEnd <= 0 || s.xEnd <= s.xStart;
        if (!empty) spanOf(row, col) = s;
    }

    void renderRow(const ZPR_Image& source, const ZPR_Image& target, int64_t row,
                   const std::vector<Corners>& corners) {
        const int64_t rowXStart = std::max<int64_t>(spanOf(row, 0).xStart, 0);
        const int64_t rowXEnd =
            std::min(kBlock * (cols_ - 1) + spanOf(row, cols_ - 1).xEnd, outWidth_);
        const int64_t yEnd = std::min<int64_t>(kBlock * (row + 1), target.height);
        for (int64_t y = kBlock * row; y < yEnd; y += 2) {
            const int64_t down = y - kBlock * row;
            for (int64_t col = 0; col < cols_; ++col) {
                const Corners& c = corners[static_cast<size_t>(col)];
                const int64_t leftX = kBlock * c[0].x + down * (c[2].x - c[0].x);
                const int64_t leftY = kBlock * c[0].y + down * (c[2].y - c[0].y);
                const int64_t slopeX = kBlock * c[1].x + down * (c[3].x - c[1].x) - leftX;
                const int64_t slopeY = kBlock * c[1].y + down * (c[3].y - c[1].y) - leftY;
                // Offsets after a number of steps; both start from the span, wherever xFrom is.
                const Span& span = spanOf(row, col);
                const auto at = [&](int64_t step) {
                    return Offset{(span.xStart + step) * slopeX + kBlock * leftX,
                                  (span.yStart + step) * slopeY + kBlock * leftY};
                };
                const int64_t xFrom = std::max(rowXStart, kBlock * col);
                const int64_t xTo = std::min(rowXEnd, kBlock * (col + 1));
                const int64_t groupsFrom = (xFrom + 7) & ~int64_t{7}, groupsTo = xTo & ~int64_t{7};
                int64_t step = 0, x = xFrom;
                const auto renderPixel = [&] {
                    const Offset a = at(step++);
                    writeLuma(source, target, x, y, a, 0);
                    copyChroma(source, target, x & ~int64_t{1}, y, a, x + (a.x >> kShift) + 1);
                };
                for (; x < groupsFrom && x < xTo; ++x) renderPixel();
                for (x = groupsFrom; x < groupsTo; x += 2, step += 2) {
                    writeLuma(source, target, x, y, at(step), 0);
                    writeLuma(source, target, x, y, at(step), 1);
                    copyChroma(source, target, x, y, at(step), x + (at(step).x >> kShift));
                }
                // Starts over at the multiple of 8 when the head has ended inside that same group.
                for (x = groupsTo; x < xTo; ++x) renderPixel();
            }
        }
    }

    /// Pixel x + right of rows y and y + 1; both take pixel x's offset on row y.
    void writeLuma(const ZPR_Image& source, const ZPR_Image& target, int64_t x, int64_t y,
                   const Offset& a, int64_t right) {
        const int64_t fractionX = (a.x >> (kShift - 4)) & 15,
                      fractionY = (a.y >> (kShift - 4)) & 15;
        for (int64_t below = 0; below < 2; ++below) {
            const auto column = [&](int64_t next) {
                const int64_t sx = x + right + next + (a.x >> kShift),
                              sy = y + below + (a.y >> kShift);
                const int64_t upper = tap(source, 0, sy, sx), lower = tap(source, 0, sy + 1, sx);
                return 16 * upper + fractionY * (lower - upper);
            };
            target.plane[0][(y + below) * target.pitch[0] + x + right] =
                static_cast<uint8_t>((16 * column(0) + fractionX * (column(1) - column(0))) >> 8);
        }
    }

    void copyChroma(const ZPR_Image& source, const ZPR_Image& target, int64_t x, int64_t y,
                    const Offset& a, int64_t sourceX) {
        const int64_t pair = std::clamp<int64_t>(sourceX & ~int64_t{1}, 0, inWidth_ - 2);
        for (int64_t i = 0; i < 2; ++i) {
            target.plane[1][y / 2 * target.pitch[1] + x + i] =
                tap(source, 1, (y + (a.y >> kShift)) >> 1, pair + i);
        }
    }

    uint8_t tap(const ZPR_Image& source, int plane, int64_t row, int64_t column) const {
        const int64_t safeRow = std::clamp<int64_t>(row, 0, inHeight_ / (plane + 1) - 1);
        return source.plane[plane][safeRow * source.pitch[plane] +
                                   std::clamp<int64_t>(column, 0, inWidth_ - 1)];
    }

    int64_t inWidth_, inHeight_, outWidth_, outHeight_, cols_, rows_;
    std::vector<Span> spans_;
};

}  // namespace zpr_test
