#include "smoothing/smoother.h"

#include <cmath>
#include <limits>

namespace qlx::zpr_framehold {

namespace {

/// Focal length in input pixels.
double focalLength(const ZPR_Param& params) {
    constexpr double kHalfDegree = 0.008726646259971648;  // pi / 360
    if (params.fieldOfViewMode == ZPR_FOV_FOCAL_LENGTH) return params.fieldOfView;
    double span = params.inputImage.width;
    if (params.fieldOfViewMode == ZPR_FOV_HEIGHT) span = params.inputImage.height;
    if (params.fieldOfViewMode == ZPR_FOV_DIAGONAL) {
        span = std::hypot(params.inputImage.height, params.inputImage.width);
    }
    return span / 2.0 / std::tan(params.fieldOfView * kHalfDegree);
}

/// Ring entries for `delayFrames` waiting frames and the one being output.
uint32_t ringSize(const ZPR_Param& params) { return static_cast<uint32_t>(params.delayFrames) + 1; }

}  // namespace

Smoother::Smoother(const ZPR_Param* params, SensorHub* hub)
    : params_(params), hub_(hub), inputWidth_(params->inputImage.width),
      inputHeight_(params->inputImage.height), outputWidth_(params->outputImage.width),
      outputHeight_(params->outputImage.height), cropLeft_((inputWidth_ - outputWidth_) / 2),
      cropTop_((inputHeight_ - outputHeight_) / 2), cropRight_(inputWidth_ - cropLeft_),
      cropBottom_(inputHeight_ - cropTop_), meshRows_(meshNodes(outputHeight_)),
      meshCols_(meshNodes(outputWidth_)) {
    const double f = focalLength(*params);
    const double cx = inputWidth_ / 2;
    const double cy = inputHeight_ / 2;
    // The picture's axes against the device's: picture x is device -y, picture y is device -x, and
    // the camera looks along -z. Only ratios to the third row count, so all signs are turned.
    cameraMatrix_ = {{0.0, -f, -cx, -f, 0.0, -cy, 0.0, 0.0, -1.0}};
    cameraMatrixInv_ = inverse(cameraMatrix_);
    buildCropMatrix();
    cropCameraMatrix_ = cropMatrix_ * cameraMatrix_;
    buildTestBands();

    const uint64_t nodes = uint64_t{meshRows_} * meshCols_;
    if (nodes > std::numeric_limits<uint32_t>::max()) throw std::bad_alloc();
    mesh_.reserve(static_cast<uint32_t>(nodes));
    frameRing_.resize(ringSize(*params));
}

/// Deliberate: cropLeft and cropTop enter unscaled, so that an output smaller than the input does
/// not show exactly the central part.
void Smoother::buildCropMatrix() {
    const int64_t percent = params_->cropPercent;
    const double sx = outputWidth_ * 100.0 / static_cast<double>(inputWidth_ * percent);
    const double sy = outputHeight_ * 100.0 / static_cast<double>(inputHeight_ * percent);
    const double tx = -cropLeft_ + outputWidth_ * 0.5 * (1.0 - sx);
    const double ty = -cropTop_ + outputHeight_ * 0.5 * (1.0 - sy);
    cropMatrix_ = {{sx, 0.0, tx, 0.0, sy, ty, 0.0, 0.0, 1.0}};
    cropMatrixInv_ = inverse(cropMatrix_);
}

/// For smoothers that test the crop band by band; nothing in the per-frame path reads them.
void Smoother::buildTestBands() {
    constexpr int32_t kMaxBands = 20;
    const int32_t count = std::min(outputHeight_, kMaxBands);
    const int32_t bandHeight = outputHeight_ <= kMaxBands ? 1 : outputHeight_ / kMaxBands;
    const auto right = static_cast<float>(outputWidth_ - 1);
    testBands_.resize(static_cast<uint32_t>(count));
    for (int32_t b = 0; b < count; ++b) {
        const int32_t top = b * bandHeight;
        const int32_t bottom = b == count - 1 ? outputHeight_ - 1 : top + bandHeight - 1;
        SharedArray<BandPoint>& band = testBands_.writable()[b];
        band.resize(bandHeight > 1 ? 4 : 2);
        BandPoint* points = band.writable();
        points[0] = {0.0f, static_cast<float>(top)};
        points[1] = {right, static_cast<float>(top)};
        if (bandHeight > 1) {
            points[2] = {0.0f, static_cast<float>(bottom)};
            points[3] = {right, static_cast<float>(bottom)};
        }
    }
}

void Smoother::reset() {
    readCount_ = 0;
    writeCount_ = 0;
}

}  // namespace qlx::zpr_framehold
