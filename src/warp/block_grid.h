#pragma once

#include <cstdint>

namespace qlx::zpr_framehold {

constexpr int32_t kBlockShift = 7;
constexpr int32_t kBlockSize = 1 << kBlockShift;

/// The sizes of an instance's images and the output's division into blocks of kBlockSize pixels.
struct BlockGrid {
    int32_t inWidth;
    int32_t inHeight;
    int32_t outWidth;
    int32_t outHeight;
    int32_t cols;
    int32_t rows;

    BlockGrid(int32_t inWidth_, int32_t inHeight_, int32_t outWidth_, int32_t outHeight_)
        : inWidth(inWidth_), inHeight(inHeight_), outWidth(outWidth_), outHeight(outHeight_),
          cols(blocksAlong(outWidth_)), rows(blocksAlong(outHeight_)) {}

    static int32_t blocksAlong(int32_t size) { return ((size - 1) >> kBlockShift) + 1; }

    /// Output pixels that a block column or row covers.
    int32_t blockWidth(int32_t col) const {
        return col == cols - 1 ? outWidth - col * kBlockSize : kBlockSize;
    }
    int32_t blockHeight(int32_t row) const {
        return row == rows - 1 ? outHeight - row * kBlockSize : kBlockSize;
    }
};

/// A block's corners in the order top-left, top-right, bottom-left, bottom-right: source position
/// minus the corner's own output position, in 1/16 pixel, at most kMaxCornerDelta either way.
struct CornerDeltas {
    int32_t dx[4];
    int32_t dy[4];
};

/// Far beyond every offset that fits the kernels' 32-bit lanes, and small enough that edges, steps
/// and slopes made of it stay within 32 bits.
constexpr int32_t kMaxCornerDelta = 1 << 22;

/// The pixels of a block that have a source, counted from its top-left corner; ends exclusive.
struct BlockSpan {
    int32_t xStart;
    int32_t yStart;
    int32_t xEnd;
    int32_t yEnd;
};

/// Source offsets of a block's left and right edge at the current output row, in 1/2048 pixel,
/// and by how much they change in two rows.
struct EdgeSteps {
    int32_t stepLeftX;
    int32_t stepRightX;
    int32_t stepLeftY;
    int32_t stepRightY;
    int32_t edgeLeftX;
    int32_t edgeLeftY;
    int32_t edgeRightX;
    int32_t edgeRightY;
};

static_assert(sizeof(CornerDeltas) == 32 && sizeof(BlockSpan) == 16 && sizeof(EdgeSteps) == 32);

}  // namespace qlx::zpr_framehold
