// Corrections of all kinds, with any numbers in them, straight into the warper: with every kernel
// level, on the calling thread and on a pool, the bytes must be the same.
#include "draw.h"
#include "support/guarded_frame.h"
#include "support/kernel_levels.h"
#include "warp/block_warper.h"

#include <algorithm>
#include <memory>
#include <vector>

using namespace qlx::zpr_framehold;
using zpr_fuzz::Draw;
using zpr_test::GuardedFrame;

namespace {

struct Sizes {
    int inWidth, inHeight, outWidth, outHeight;
};

WorkerPool* sharedPool() {
    static WorkerPool* pool = WorkerPool::create(nullptr, 3);
    return pool;
}

/// Near `likely`, or anything.
double drawNear(Draw& draw, double likely, double stray) {
    const int choice = draw.integer(0, 15);
    return choice == 0 ? draw.wild() : choice < 4 ? likely : likely + draw.uniform(-stray, stray);
}

void drawMesh(Draw& draw, const Sizes& sizes, SharedArray<MeshPoint>& mesh) {
    const uint32_t columns = meshNodes(sizes.outWidth);
    const uint32_t rows = meshNodes(sizes.outHeight);
    const uint32_t nodes = columns * rows;
    mesh.resize(draw.integer(0, 15) == 0 ? nodes + static_cast<uint32_t>(draw.integer(0, 2)) - 1
                                         : nodes);
    const double shiftX = draw.uniform(-60, 60), shiftY = draw.uniform(-60, 60);
    const double scale = draw.flag() ? 1.0 : draw.uniform(-1, 5);
    const double stray = draw.flag() ? 0.5 : 90;
    for (uint32_t i = 0; i < mesh.size(); ++i) {
        const double x = std::min(kMeshStep * (i % columns), uint32_t(sizes.outWidth) - 1);
        const double y = std::min(kMeshStep * (i / columns), uint32_t(sizes.outHeight) - 1);
        mesh.writable()[i] = {drawNear(draw, scale * x + shiftX, stray),
                              drawNear(draw, scale * y + shiftY, stray)};
    }
}

Matrix3 drawMatrix(Draw& draw) {
    const double stray[9] = {0.5, 0.5, 90, 0.5, 0.5, 90, 0.01, 0.01, 0.5};
    Matrix3 m;
    for (int i = 0; i < 9; ++i) m.m[i] = drawNear(draw, i % 4 == 0 ? 1.0 : 0.0, stray[i]);
    return m;
}

void drawRecord(Draw& draw, const Sizes& sizes, CorrectionRecord& record) {
    record.matrix = drawMatrix(draw);
    int32_t* const fields[] = {&record.x, &record.y, &record.width, &record.height};
    const int ranges[] = {sizes.inWidth, sizes.inHeight, sizes.inWidth, sizes.inHeight};
    for (int i = 0; i < 4; ++i) {
        *fields[i] = draw.integer(0, 7) == 0 ? draw.word() : draw.integer(0, ranges[i]);
    }
}

/// By a mesh, by a matrix for each block row, or by bands; now and then malformed.
void drawCorrection(Draw& draw, const Sizes& sizes, SharedArray<MeshPoint>& mesh,
                    FrameCorrection& correction) {
    const int kind = draw.integer(0, 3);
    const auto blockRows = static_cast<uint32_t>(BlockGrid::blocksAlong(sizes.outHeight));
    uint32_t records = kind < 2 ? 1 : blockRows;
    if (kind == 3 || draw.integer(0, 15) == 0) records = uint32_t(draw.integer(0, 6));
    correction.resize(records);
    for (uint32_t i = 0; i < records; ++i) {
        drawRecord(draw, sizes, correction.writable()[i]);
        correction.writable()[i].isBand = kind == 3 ? 1 : 0;
    }
    if (kind >= 2 || records == 0) return;
    drawMesh(draw, sizes, mesh);
    correction.writable()[0].mesh = &mesh;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Draw draw(data, size);
    const Sizes sizes{draw.even(2, 300), draw.even(2, 300), draw.even(2, 300), draw.even(2, 300)};
    WorkerPool* pool = draw.flag() ? sharedPool() : nullptr;
    std::vector<std::unique_ptr<BlockWarper>> warpers;
    for (const RowKernels* kernels : zpr_test::availableKernels()) {
        warpers.push_back(std::make_unique<BlockWarper>(
            sizes.inWidth, sizes.inHeight, sizes.outWidth, sizes.outHeight, ZPR_FORMAT_SEMIPLANAR_1,
            nullptr, warpers.empty() ? nullptr : pool, *kernels));
    }
    const bool atEnd = draw.flag();
    GuardedFrame source(sizes.inWidth, sizes.inHeight, sizes.inWidth + draw.integer(0, 9),
                        sizes.inWidth + draw.integer(0, 9), atEnd);
    source.fill(draw.byte());
    const int mostRows = kBlockSize * BlockGrid::blocksAlong(sizes.outHeight);

    // Blocks that fail take their span from the frame before.
    for (int frame = 0; frame < 3 && !draw.isEmpty(); ++frame) {
        SharedArray<MeshPoint> mesh;
        FrameCorrection correction;
        drawCorrection(draw, sizes, mesh, correction);
        const int rows = draw.flag() ? sizes.outHeight : draw.even(2, mostRows);
        const int padding = draw.integer(0, 9);
        std::vector<uint8_t> expected;
        bool isExpectedToRender = false;
        for (const auto& warper : warpers) {
            GuardedFrame target(sizes.outWidth, rows, sizes.outWidth + padding, sizes.outWidth,
                                atEnd);
            target.fill(7);
            const bool hasRendered = warper->warp(source.image, target.image, correction);
            if (expected.empty()) {
                expected = target.bytes();
                isExpectedToRender = hasRendered;
            }
            zpr_fuzz::require(hasRendered == isExpectedToRender && target.bytes() == expected,
                              "all kernels and pools write the same bytes");
        }
    }
    return 0;
}
