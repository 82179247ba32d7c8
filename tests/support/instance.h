#pragma once

#include "zpr_framehold.h"

namespace zpr_test {

/// Valid parameters with input and output of one size, rates and gravity enabled.
inline ZPR_Param makeParam(int width, int height) {
    ZPR_Param param{};
    ZPR_GetDefaultParam(&param);
    param.inputImage = {ZPR_FORMAT_SEMIPLANAR_2, width, height, {}, {width, width}};
    param.outputImage = param.inputImage;
    param.timeOffset = 0.0;
    param.sensorMask = ZPR_SENSOR_BIT(ZPR_SENSOR_GRAVITY_1) | ZPR_SENSOR_BIT(ZPR_SENSOR_RATE_1);
    return param;
}

inline ZPR_SensorData sample(int type, double time, double x, double y, double z, double w = 0.0) {
    return {type, time, {x, y, z, w}};
}

}  // namespace zpr_test
