#include "warp/block_warper.h"

#include "warp/band_conversion.h"
#include "warp/block_span.h"
#include "warp/row_renderer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace qlx::zpr_framehold {

namespace {

constexpr int32_t kNoTicket = -1;
constexpr int32_t kNotRun = 1;
constexpr int32_t kMaxOutstanding = WorkerPool::kCapacity;

static_assert(kBlockSize == kMeshStep, "the corners of a block are mesh nodes");

/// A source position as an offset from an output position (in pixels), in 1/16 pixel: truncated
/// toward zero, then limited; not a number counts as 0.
int32_t cornerDelta(double position, int64_t output) {
    const double sixteenths = position * 16.0;
    int64_t source = 0;
    if (sixteenths >= std::numeric_limits<int32_t>::max()) {
        source = std::numeric_limits<int32_t>::max();
    } else if (sixteenths <= std::numeric_limits<int32_t>::min()) {
        source = std::numeric_limits<int32_t>::min();
    } else if (!std::isnan(sixteenths)) {
        source = static_cast<int64_t>(sixteenths);
    }
    return static_cast<int32_t>(
        std::clamp<int64_t>(source - output * 16, -kMaxCornerDelta, kMaxCornerDelta));
}

}  // namespace

BlockWarper::BlockWarper(int32_t inWidth, int32_t inHeight, int32_t outWidth, int32_t outHeight,
                         uint32_t /*outFormat*/, MemoryHandle memory, WorkerPool* pool,
                         const RowKernels& kernels)
    : memory_(memory), pool_(pool), grid_(inWidth, inHeight, outWidth, outHeight),
      kernels_(kernels) {
    rowRecords_.resize(static_cast<uint32_t>(grid_.rows));
    CorrectionRecord* record = rowRecords_.writable();
    for (int32_t row = 0; row < grid_.rows; ++row, ++record) {
        record->y = row * kBlockSize;
        record->width = outWidth;
        record->height = grid_.blockHeight(row);
    }

    const uint64_t size = layOutWorkArea(nullptr);
    const AlignedBlock area = allocAligned(memory, size, alignof(RowTask));
    if (area.data == nullptr) {
        status_ = ZPR_ERR_NO_MEMORY;
        return;
    }
    workArea_ = area.block;
    std::memset(area.data, 0, static_cast<size_t>(size));
    layOutWorkArea(static_cast<char*>(area.data));
}

BlockWarper::~BlockWarper() {
    if (workArea_ != nullptr) free(memory_, workArea_);
}

uint64_t BlockWarper::memorySize(int32_t outWidth, int32_t outHeight, uint32_t /*outFormat*/) {
    const auto cols = static_cast<uint64_t>(BlockGrid::blocksAlong(outWidth));
    const auto rows = static_cast<uint64_t>(BlockGrid::blocksAlong(outHeight));
    return 80 * cols * rows + 32 * rows;
}

/// Places the tables at `base` (null: only counts). Returns the size of the work area.
uint64_t BlockWarper::layOutWorkArea(char* base) {
    const auto rows = static_cast<uint64_t>(grid_.rows);
    const uint64_t blocks = rows * static_cast<uint64_t>(grid_.cols);
    uint64_t offset = 0;
    const auto place = [&](auto*& table, uint64_t count) {
        using Entry = std::remove_reference_t<decltype(*table)>;
        if (base != nullptr) table = reinterpret_cast<Entry*>(base + offset);
        offset += count * sizeof(Entry);
    };
    place(tasks_, rows);
    place(tickets_, rows);
    place(cornerDeltas_, blocks);
    place(blockSpans_, blocks);
    place(edgeSteps_, blocks);
    return offset;
}

bool BlockWarper::warp(const ZPR_Image& source, const ZPR_Image& target,
                       const FrameCorrection& correction) {
    if (correction.isEmpty()) return false;
    const SharedArray<MeshPoint>* mesh = correction.size() == 1 ? correction[0].mesh : nullptr;
    if (mesh != nullptr && mesh->isEmpty()) mesh = nullptr;
    const FrameCorrection* records = &correction;
    if (mesh != nullptr) {
        if (mesh->size() != meshNodes(grid_.outHeight) * meshNodes(grid_.outWidth)) return false;
    } else {
        if (correction[0].isBand != 0) {
            convertBands(grid_, correction, rowRecords_);
            records = &rowRecords_;
        }
        if (records->size() != static_cast<uint32_t>(grid_.rows)) return false;
    }
    for (int32_t row = 0; row < grid_.rows; ++row) {
        const Matrix3* matrix =
            mesh != nullptr ? nullptr : &(*records)[static_cast<uint32_t>(row)].matrix;
        tasks_[row] = {&source, &target, matrix, row, this, kNotRun, mesh};
    }

    // The pool takes the upper rows, the calling thread the lowest quarter.
    const int32_t pooled = pool_ == nullptr ? 0 : grid_.rows - grid_.rows / 4;
    for (int32_t row = 0; row < pooled; ++row) submitRow(row);
    if (pooled > 0) WorkerPool::wake(*pool_);
    for (int32_t row = pooled; row < grid_.rows; ++row) runTask(&tasks_[row]);
    for (int32_t row = 0; row < pooled; ++row) waitForRow(row);
    return true;
}

/// Hands a row to the pool, or runs it here if the pool is full.
void BlockWarper::submitRow(int32_t row) {
    // The pool has room for so many finished tasks that nobody has waited for.
    if (row >= kMaxOutstanding) {
        WorkerPool::wake(*pool_);
        waitForRow(row - kMaxOutstanding);
    }
    tickets_[row] = WorkerPool::submitQuietly(pool_, runTask, &tasks_[row]);
    if (tickets_[row] < 0) {
        tickets_[row] = kNoTicket;
        runTask(&tasks_[row]);
    }
}

void BlockWarper::waitForRow(int32_t row) {
    if (tickets_[row] == kNoTicket) return;
    WorkerPool::wait(pool_, tickets_[row]);
    tickets_[row] = kNoTicket;
}

void BlockWarper::runTask(void* argument) {
    RowTask& task = *static_cast<RowTask*>(argument);
    BlockWarper& warper = *task.warper;
    if (task.mesh != nullptr) {
        warper.mapRowByMesh(task.row, *task.mesh);
    } else {
        warper.mapRowByHomography(task.row, *task.matrix);
    }
    const SourceFrame source{task.source->plane[0], task.source->plane[1], task.source->pitch[0],
                             task.source->pitch[1], warper.grid_.inWidth,  warper.grid_.inHeight};
    const size_t first = warper.blockIndex(0, task.row);
    renderRow(warper.kernels_, warper.grid_, source, *task.target,
              {task.row, warper.cornerDeltas_ + first, warper.blockSpans_ + first,
               warper.edgeSteps_ + first});
    task.result = 0;
}

void BlockWarper::mapRowByMesh(int32_t row, const SharedArray<MeshPoint>& mesh) {
    const auto stride = static_cast<size_t>(grid_.cols) + 1;
    const MeshPoint* top = mesh.begin() + static_cast<size_t>(row) * stride;
    const MeshPoint* bottom = top + stride;
    // The last mesh row sits on the last output row; the block's lower edge is found from it.
    const bool isPartial =
        row == grid_.rows - 1 && kBlockSize * int64_t{grid_.rows} != grid_.outHeight;
    const int32_t meshHeight = grid_.outHeight - 1 - kBlockSize * row;
    const auto lowerEdge = [&](const MeshPoint& above, const MeshPoint& below) {
        if (!isPartial) return below;
        return MeshPoint{above.x + (below.x - above.x) * kBlockSize / meshHeight,
                         above.y + (below.y - above.y) * kBlockSize / meshHeight};
    };
    // Deliberate: a partial last column is not treated likewise; its mesh column counts as lying
    // on the block's right edge.
    for (int32_t col = 0; col < grid_.cols; ++col) {
        const MeshPoint corners[4] = {top[col], top[col + 1], lowerEdge(top[col], bottom[col]),
                                      lowerEdge(top[col + 1], bottom[col + 1])};
        setCorners(col, row, corners);
    }
}

/// Evaluates the homography at the blocks' exact corners. A corner that maps to infinity gets no
/// offset.
void BlockWarper::mapRowByHomography(int32_t row, const Matrix3& matrix) {
    for (int32_t col = 0; col < grid_.cols; ++col) {
        MeshPoint corners[4];
        for (int i = 0; i < 4; ++i) {
            const double x = static_cast<double>(kBlockSize) * (col + i % 2);
            const double y = static_cast<double>(kBlockSize) * (row + i / 2);
            const Vector3 p = matrix * Vector3{x, y, 1.0};
            corners[i] = p.z == 0.0 ? MeshPoint{x, y} : MeshPoint{p.x / p.z, p.y / p.z};
        }
        setCorners(col, row, corners);
    }
}

/// Takes the source positions of a block's corners.
void BlockWarper::setCorners(int32_t col, int32_t row, const MeshPoint corners[4]) {
    const size_t block = blockIndex(col, row);
    CornerDeltas& deltas = cornerDeltas_[block];
    for (int i = 0; i < 4; ++i) {
        deltas.dx[i] = cornerDelta(corners[i].x, int64_t{kBlockSize} * (col + i % 2));
        deltas.dy[i] = cornerDelta(corners[i].y, int64_t{kBlockSize} * (row + i / 2));
    }
    // A folded or empty block keeps the span it had, and is rendered all the same.
    if (computeBlockSpan(grid_, col, row, deltas, blockSpans_[block]) == SpanResult::kValid) {
        clipBlockSpan(grid_, col, row, blockSpans_[block]);
    }
}

}  // namespace qlx::zpr_framehold
