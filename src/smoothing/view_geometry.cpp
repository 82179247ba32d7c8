#include "smoothing/view_geometry.h"

#include <cmath>

namespace qlx::zpr_framehold {

namespace {

double focalLengthOf(const ZPR_Param& params) {
    constexpr double kHalfDegree = 0.008726646259971648;  // pi / 360
    if (params.fieldOfViewMode == ZPR_FOV_FOCAL_LENGTH) return params.fieldOfView;
    double span = params.inputImage.width;
    if (params.fieldOfViewMode == ZPR_FOV_HEIGHT) span = params.inputImage.height;
    if (params.fieldOfViewMode == ZPR_FOV_DIAGONAL) {
        span = std::hypot(params.inputImage.height, params.inputImage.width);
    }
    return span / 2.0 / std::tan(params.fieldOfView * kHalfDegree);
}

/// Picture x is device -y, picture y is device -x, and the camera looks along -z. Only ratios to
/// the third row matter, so all signs are inverted.
Matrix3 cameraMatrix(const ViewGeometry& view) {
    const double f = view.focalLength;
    const double cx = view.inputWidth / 2;
    const double cy = view.inputHeight / 2;
    return {{0.0, -f, -cx, -f, 0.0, -cy, 0.0, 0.0, -1.0}};
}

/// Deliberate: cropLeft and cropTop enter unscaled, so that an output smaller than the input does
/// not show exactly the central part.
Matrix3 cropMatrix(const ViewGeometry& view, int64_t percent) {
    const double sx = view.outputWidth * 100.0 / static_cast<double>(view.inputWidth * percent);
    const double sy = view.outputHeight * 100.0 / static_cast<double>(view.inputHeight * percent);
    const double tx = -view.cropLeft + view.outputWidth * 0.5 * (1.0 - sx);
    const double ty = -view.cropTop + view.outputHeight * 0.5 * (1.0 - sy);
    return {{sx, 0.0, tx, 0.0, sy, ty, 0.0, 0.0, 1.0}};
}

}  // namespace

ViewGeometry::ViewGeometry(const ZPR_Param& params)
    : inputWidth(params.inputImage.width), inputHeight(params.inputImage.height),
      outputWidth(params.outputImage.width), outputHeight(params.outputImage.height),
      cropLeft((inputWidth - outputWidth) / 2), cropTop((inputHeight - outputHeight) / 2),
      cropRight(inputWidth - cropLeft), cropBottom(inputHeight - cropTop),
      focalLength(focalLengthOf(params)), camera(cameraMatrix(*this)), cameraInv(inverse(camera)),
      crop(cropMatrix(*this, params.cropPercent)), cropInv(inverse(crop)),
      cropCamera(crop * camera) {}

}  // namespace qlx::zpr_framehold
