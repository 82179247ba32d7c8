#pragma once

#include "api/delay_ring.h"
#include "runtime/memory_arena.h"
#include "runtime/worker_pool.h"
#include "sensors/sensor_hub.h"
#include "smoothing/smoother.h"
#include "warp/image_warper.h"
#include "warp/row_kernels.h"
#include "zpr_framehold.h"

#include <cstdint>

/// Target of a handle. Plain memory from the memory handle, zero when made; it owns
/// everything that it points to.
struct ZPR_Instance {
    qlx::zpr_framehold::MemoryHandle memory;
    void* block;  // what the instance itself lies in
    qlx::zpr_framehold::WorkerPool* pool;
    int64_t framesIn;   // accepted since the start or the last reset
    int64_t framesOut;  // produced since then
    ZPR_Param params;
    qlx::zpr_framehold::SensorHub* hub;
    qlx::zpr_framehold::Smoother* smoother;
    qlx::zpr_framehold::ImageWarper* warper;
    qlx::zpr_framehold::DelayRing ring;
};

namespace qlx::zpr_framehold {

/// Threads that ZPR_Init asks the pool for.
constexpr unsigned kPoolThreads = 4;

/// Builds an instance that renders with `kernels` on a pool of `poolThreads` threads and the caller;
/// with none, on the caller alone. `param` must be valid. Returns ZPR_OK and sets `out`, or gives
/// back all that was taken and returns an error code.
int createInstance(MemoryHandle memory, const ZPR_Param& param, const RowKernels& kernels,
                   unsigned poolThreads, ZPR_Instance*& out);

/// Releases an instance, whole or half built.
void destroyInstance(ZPR_Instance* instance);

void resetInstance(ZPR_Instance& instance);

}  // namespace qlx::zpr_framehold
