#include "api/parameters.h"

#include "warp/block_warper.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qlx::zpr_framehold {

namespace {

constexpr bool isIn(int32_t value, int32_t low, int32_t high) {
    return value >= low && value <= high;
}

bool isValidView(double fieldOfView, int32_t mode) {
    if (fieldOfView > 0.0 && fieldOfView <= 180.0)
        return isIn(mode, ZPR_FOV_WIDTH, ZPR_FOV_FOCAL_LENGTH);
    return fieldOfView > 0.0 && mode == ZPR_FOV_FOCAL_LENGTH;
}

bool isValidImage(const ZPR_Image& image) {
    return image.width > 0 && image.width % 2 == 0 && image.height > 0 && image.height % 2 == 0 &&
           isKnownFormat(image.format);
}

/// Memory of the delay ring, by the record sizes of 32-bit devices. Deliberate: for delayFrames
/// slots and frames, one less than the ring has; and the product of the frame sizes wraps in 32
/// bits, so the figure can be negative.
int64_t ringSize(const ZPR_Param& param) {
    constexpr double kSlotSize = 56.0;
    if (param.delayFrames <= 0) return 0;
    const uint32_t product = static_cast<uint32_t>(param.inputImage.pitch[0]) *
                             static_cast<uint32_t>(param.inputImage.height) *
                             static_cast<uint32_t>(param.delayFrames);
    const double x = kSlotSize * param.delayFrames + 1.5 * static_cast<int32_t>(product);
    const double rounded = std::round(x);
    return static_cast<int64_t>(rounded < x ? rounded + 1.0 : rounded);
}

}  // namespace

bool isKnownFormat(uint32_t format) {
    return format == ZPR_FORMAT_SEMIPLANAR_1 || format == ZPR_FORMAT_SEMIPLANAR_2;
}

bool isValid(const ZPR_Param& param) {
    return isIn(param.cropPercent, 1, 100) && isIn(param.smoothingLevel, 1, 10) &&
           isValidView(param.fieldOfView, param.fieldOfViewMode) &&
           isValidImage(param.inputImage) && isValidImage(param.outputImage) &&
           param.delayFrames >= 0 && isIn(param.sensorMask, 1, 63) && param.readoutTime >= 0.0;
}

uint32_t memorySize(const ZPR_Param& param) {
    constexpr int64_t kHeadroom = 0x1400000;
    const ZPR_Image& output = param.outputImage;
    const uint64_t warper = BlockWarper::memorySize(output.width, output.height, output.format);
    const int64_t total = ringSize(param) + kHeadroom + static_cast<int64_t>(warper);
    constexpr int64_t kLargest = std::numeric_limits<uint32_t>::max();
    return static_cast<uint32_t>(std::min(total, kLargest));
}

}  // namespace qlx::zpr_framehold
