#include "api/instance.h"

#include "smoothing/iir_smoother.h"
#include "warp/block_warper.h"

#include <cstring>
#include <new>
#include <type_traits>

namespace qlx::zpr_framehold {

namespace {

static_assert(std::is_trivially_copyable_v<ZPR_Instance>);

/// Builds the parts in order. May throw; whatever is built by then hangs on the instance.
int buildParts(ZPR_Instance& instance, const ZPR_Param& param, const RowKernels& kernels,
               unsigned poolThreads) {
    // Tested first, so that impossible sizes fail before large memory is touched.
    if (!fitsDelayRing(param)) return ZPR_ERR_NO_MEMORY;
    if (poolThreads > 0) {
        instance.pool = WorkerPool::create(instance.memory, poolThreads);
        if (instance.pool == nullptr) return ZPR_ERR_NO_MEMORY;
    }
    instance.params = param;
    instance.hub = new SensorHub(param.sensorMask, param.delayFrames * kFramePeriod);
    instance.smoother = new IIRSmoother(&instance.params, instance.hub);
    const ZPR_Image& input = param.inputImage;
    const ZPR_Image& output = param.outputImage;
    auto* warper = new BlockWarper(input.width, input.height, output.width, output.height,
                                   output.format, instance.memory, instance.pool, kernels);
    instance.warper = warper;
    if (warper->status() != ZPR_OK) return warper->status();
    return buildDelayRing(instance.memory, param, instance.ring) ? ZPR_OK : ZPR_ERR_NO_MEMORY;
}

}  // namespace

int createInstance(MemoryHandle memory, const ZPR_Param& param, const RowKernels& kernels,
                   unsigned poolThreads, ZPR_Instance*& out) {
    const AlignedBlock place = allocAligned(memory, sizeof(ZPR_Instance), alignof(ZPR_Instance));
    if (place.data == nullptr) return ZPR_ERR_NO_MEMORY;
    auto* instance = new (place.data) ZPR_Instance{};
    instance->memory = memory;
    instance->block = place.block;
    int status = ZPR_ERR_NO_MEMORY;
    try {
        status = buildParts(*instance, param, kernels, poolThreads);
    } catch (...) {
    }
    if (status != ZPR_OK) {
        destroyInstance(instance);
        return status;
    }
    out = instance;
    return ZPR_OK;
}

void destroyInstance(ZPR_Instance* instance) {
    const MemoryHandle memory = instance->memory;
    delete instance->hub;
    delete instance->smoother;
    delete instance->warper;
    destroyDelayRing(memory, instance->ring);
    WorkerPool::destroy(instance->pool);
    free(memory, instance->block);
}

void resetInstance(ZPR_Instance& instance) {
    instance.framesIn = 0;
    instance.framesOut = 0;
    instance.hub->reset();
    instance.smoother->reset();
}

}  // namespace qlx::zpr_framehold
