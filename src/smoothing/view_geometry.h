#pragma once

#include "math/matrix3.h"
#include "zpr_framehold.h"

#include <cstdint>

namespace qlx::zpr_framehold {

/// Camera and crop as matrices between device directions, input pixels and output pixels.
struct ViewGeometry {
    explicit ViewGeometry(const ZPR_Param& params);

    int32_t inputWidth;
    int32_t inputHeight;
    int32_t outputWidth;
    int32_t outputHeight;
    int32_t cropLeft;
    int32_t cropTop;
    int32_t cropRight;
    int32_t cropBottom;
    double focalLength;  // input pixels
    Matrix3 camera;      // device coordinates to input pixels
    Matrix3 cameraInv;
    Matrix3 crop;  // input pixels to output pixels
    Matrix3 cropInv;
    Matrix3 cropCamera;  // crop * camera
};

}  // namespace qlx::zpr_framehold
