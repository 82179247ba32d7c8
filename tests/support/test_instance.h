#pragma once

#include "zpr_framehold.h"

#include <stdexcept>

namespace zpr_test {

constexpr int kRatesAndGravity =
    ZPR_SENSOR_BIT(ZPR_SENSOR_RATE_1) | ZPR_SENSOR_BIT(ZPR_SENSOR_GRAVITY_1);

/// Valid parameters with input and output of one size, rates and gravity enabled.
inline ZPR_Param makeParam(int width, int height) {
    ZPR_Param param{};
    ZPR_GetDefaultParam(&param);
    param.inputImage = {ZPR_FORMAT_SEMIPLANAR_2, width, height, {}, {width, width}};
    param.outputImage = param.inputImage;
    param.timeOffset = 0.0;
    param.sensorMask = kRatesAndGravity;
    return param;
}

inline ZPR_SensorData sample(int type, double time, double x, double y, double z, double w = 0.0) {
    return {type, time, {x, y, z, w}};
}

/// An instance, released with the object.
class Instance {
public:
    /// Throws std::runtime_error if there is none to be had.
    explicit Instance(const ZPR_Param& param, void* memory = nullptr) {
        if (ZPR_Init(memory, &param, &handle_) != ZPR_OK) throw std::runtime_error("no instance");
    }
    /// Takes over an instance. Throws std::runtime_error if it is null.
    explicit Instance(ZPR_Handle handle) : handle_(handle) {
        if (handle == nullptr) throw std::runtime_error("no instance");
    }
    ~Instance() { ZPR_Deinit(&handle_); }
    Instance(const Instance&) = delete;

    operator ZPR_Handle() const { return handle_; }

private:
    ZPR_Handle handle_ = nullptr;
};

}  // namespace zpr_test
