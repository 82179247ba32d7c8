// The exported functions: null tests, and the border that no exception crosses.
#include "api/frame_pipeline.h"
#include "api/instance.h"
#include "api/parameters.h"
#include "api/record_layout.h"

#include <cstring>

namespace fh = qlx::zpr_framehold;

namespace {

#define ZPR_TEXT_OF(number) #number
#define ZPR_NUMBERS(major, minor, build, revision) \
    ZPR_TEXT_OF(major) "." ZPR_TEXT_OF(minor) "." ZPR_TEXT_OF(build) "." ZPR_TEXT_OF(revision)

constexpr ZPR_Version kVersion = {
    ZPR_VERSION_MAJOR,
    ZPR_VERSION_MINOR,
    ZPR_VERSION_BUILD,
    ZPR_VERSION_REVISION,
    "Quillon_Framehold_S_" ZPR_NUMBERS(ZPR_VERSION_MAJOR, ZPR_VERSION_MINOR, ZPR_VERSION_BUILD,
                                       ZPR_VERSION_REVISION),
    "06/02/2017",
    "(c) The Framehold developers"};

}  // namespace

void ZPR_GetVersion(ZPR_Version* out) {
    if (out != nullptr) *out = kVersion;
}

int ZPR_GetDefaultParam(ZPR_Param* param) {
    if (param == nullptr) return ZPR_ERR_INVALID_PARAM;
    param->sensorMask = 0;
    param->delayFrames = 0;
    param->fieldOfView = 65.4002;
    param->fieldOfViewMode = ZPR_FOV_WIDTH;
    param->readoutTime = 0.0299;
    param->timeOffset = -0.0411;
    param->cropPercent = 80;
    param->smoothingLevel = 9;
    return ZPR_OK;
}

int ZPR_GetMemorySize(const ZPR_Param* param, uint32_t* size) {
    if (param == nullptr || size == nullptr || !fh::isValid(*param)) return ZPR_ERR_INVALID_PARAM;
    *size = fh::memorySize(*param);
    return ZPR_OK;
}

int ZPR_Init(void* memory, const ZPR_Param* param, ZPR_Handle* out) {
    if (param == nullptr || out == nullptr || !fh::isValid(*param)) return ZPR_ERR_INVALID_PARAM;
    return fh::createInstance(static_cast<fh::MemoryHandle>(memory), *param, fh::selectRowKernels(),
                              fh::kPoolThreads, *out);
}

int ZPR_Deinit(ZPR_Handle* handle) {
    if (handle != nullptr && *handle != nullptr) {
        fh::destroyInstance(*handle);
        *handle = nullptr;
    }
    return ZPR_OK;
}

int ZPR_Reset(ZPR_Handle handle) {
    if (handle == nullptr) return ZPR_ERR_INVALID_PARAM;
    fh::resetInstance(*handle);
    return ZPR_OK;
}

int ZPR_SetSensorData(ZPR_Handle handle, const ZPR_SensorData* sample) {
    if (sample == nullptr || handle == nullptr) return ZPR_ERR_INVALID_PARAM;
    if (sample->type < ZPR_SENSOR_GRAVITY_1 || sample->type > ZPR_SENSOR_ROTATION_2 ||
        !handle->hub->isEnabled(sample->type)) {
        return ZPR_ERR_SENSOR_TYPE;
    }
    try {
        handle->hub->addSample(*sample);
    } catch (...) {
        return ZPR_ERR_NO_MEMORY;
    }
    return ZPR_OK;
}

int ZPR_Stabilize(ZPR_Handle handle, double timestamp, const ZPR_Image* input, ZPR_Image* output,
                  const ZPR_Param* update) {
    if (handle == nullptr || output == nullptr) return ZPR_ERR_INVALID_PARAM;
    try {
        return fh::stabilize(*handle, timestamp, input, *output, update);
    } catch (...) {
        return ZPR_ERR_NO_MEMORY;
    }
}
