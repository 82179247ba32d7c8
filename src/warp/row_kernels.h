#pragma once

#include <cstddef>
#include <cstdint>

// What a kernel gets. Nothing here may have linkage: the linker could give code that was compiled
// for one instruction set to all.

namespace qlx::zpr_framehold {

/// The source frame: `height` rows of `width` luma bytes and half as many rows of chroma pairs.
struct SourceFrame {
    const uint8_t* luma;
    const uint8_t* chroma;
    ptrdiff_t lumaPitch;
    ptrdiff_t chromaPitch;
    int32_t width;
    int32_t height;
};

/// The target of a row pair: luma rows y and y + 1, and the chroma row they share. The pitches lead
/// to the pairs that follow.
struct TargetRowPair {
    uint8_t* luma[2];
    uint8_t* chroma;
    ptrdiff_t lumaPitch;
    ptrdiff_t chromaPitch;
};

/// Output columns, end exclusive.
struct ColumnRange {
    int32_t begin;
    int32_t end;
};

/// Output columns of a strip, and even pixels in each of its rows.
constexpr int32_t kStrip = 16;
constexpr int32_t kStripEvens = kStrip / 2;

/// Fractional bits of source positions. Those of groups have no more, as slopes are even.
constexpr int kPositionShift = 16;

/// Source position of an even pixel, and the step from there to the next even one.
struct SourcePositions {
    int32_t x;
    int32_t y;
    int32_t stepX;
    int32_t stepY;
};

/// Strips side by side in a block that the kernels render row pair by row pair. All taps, and the
/// row below them, lie inside the source.
struct Strips {
    ColumnRange columns;  // whole strips, the first of which starts a group
    int32_t pieces;       // of each strip, 1, 2 or 4: the taps of one lie in 17 bytes of 4 rows
    SourcePositions positions;  // from the first column on, at the current row pair
    SourcePositions change;     // of all that, to the next row pair
};

constexpr int32_t kMaxPieces = 4;

/// Takes the positions of strips to the next row pair. Past the last one they may leave the range.
static inline void advance(Strips& strips) {
    const auto sum = [](int32_t a, int32_t b) {
        return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
    };
    const SourcePositions& p = strips.positions;
    const SourcePositions& c = strips.change;
    strips.positions = {sum(p.x, c.x), sum(p.y, c.y), sum(p.stepX, c.stepX), sum(p.stepY, c.stepY)};
}

/// Renders strips on a row pair, and takes their positions on to the next. The source has 18
/// columns at least, 16384 rows and columns and a pitch of 32767 bytes at most.
using RenderStrips = void(const SourceFrame& source, const TargetRowPair& target, Strips* strips,
                          int32_t count);

RenderStrips renderStrips_neon;
RenderStrips renderStrips_sse41;
RenderStrips renderStrips_avx2;

/// The kernels of one instruction set. Whatever the set, they write the same bytes.
struct RowKernels {
    const char* name;
    RenderStrips* renderStrips;  // null: everything is left to renderSegment_scalar
};

/// Instruction sets, each with more to offer than the one before.
enum class KernelLevel { kScalar, kNeon, kSse41, kAvx2 };

/// The kernels of a level; null if they are not built for this platform or the processor lacks
/// them.
const RowKernels* findRowKernels(KernelLevel level);

/// The best kernels that this processor runs.
const RowKernels& selectRowKernels();

}  // namespace qlx::zpr_framehold
