#pragma once

#include "runtime/memory_arena.h"
#include "runtime/worker_pool.h"
#include "warp/block_grid.h"
#include "warp/image_warper.h"
#include "warp/row_kernels.h"

namespace qlx::zpr_framehold {

/// Renders the output in square blocks: the source positions of a block's corners come from the
/// correction, those inside are interpolated. One task for each row of blocks.
class BlockWarper final : public ImageWarper {
public:
    /// Takes its work area from `memory`; `status` is the result. A null `pool`
    /// renders on the calling thread alone.
    BlockWarper(int32_t inWidth, int32_t inHeight, int32_t outWidth, int32_t outHeight,
                uint32_t outFormat, MemoryHandle memory, WorkerPool* pool,
                const RowKernels& kernels);
    ~BlockWarper() override;

    /// Bytes of work area for an output of this size, as 32-bit devices need them.
    static uint64_t memorySize(int32_t outWidth, int32_t outHeight, uint32_t outFormat);

    /// ZPR_OK, or ZPR_ERR_NO_MEMORY: the warper must then not be used.
    int status() const { return status_; }

    bool warp(const ZPR_Image& source, const ZPR_Image& target,
              const FrameCorrection& correction) override;

private:
    struct RowTask {
        const ZPR_Image* source;
        const ZPR_Image* target;
        const Matrix3* matrix;  // null when the row is mapped by the mesh
        int32_t row;
        BlockWarper* warper;
        int32_t result;  // 0 once the task has run
        const SharedArray<MeshPoint>* mesh;
    };
#if defined(__arm__)
    static_assert(sizeof(RowTask) == 28);
#endif

    uint64_t layOutWorkArea(char* base);
    void submitRow(int32_t row);
    void waitForRow(int32_t row);
    static void runTask(void* argument);

    void mapRowByMesh(int32_t row, const SharedArray<MeshPoint>& mesh);
    void mapRowByHomography(int32_t row, const Matrix3& matrix);
    void setCorners(int32_t col, int32_t row, const MeshPoint corners[4]);
    size_t blockIndex(int32_t col, int32_t row) const {
        return static_cast<size_t>(grid_.cols) * static_cast<size_t>(row) +
               static_cast<size_t>(col);
    }

    MemoryHandle memory_;
    WorkerPool* pool_;
    BlockGrid grid_;
    const RowKernels& kernels_;
    int status_ = ZPR_OK;
    FrameCorrection rowRecords_;  // one for each block row, for band corrections
    void* workArea_ = nullptr;
    RowTask* tasks_ = nullptr;              // this and the tables below lie in the work area
    int32_t* tickets_ = nullptr;            // kNoTicket for rows that ran on the caller
    CornerDeltas* cornerDeltas_ = nullptr;  // by block, a block row's entries side by side
    BlockSpan* blockSpans_ = nullptr;
    EdgeSteps* edgeSteps_ = nullptr;
};

}  // namespace qlx::zpr_framehold
