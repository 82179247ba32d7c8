#include "api/frame_pipeline.h"

#include "api/parameters.h"

#include <cstddef>
#include <limits>

namespace qlx::zpr_framehold {

namespace {

bool hasPlanes(const ZPR_Image& image) {
    return image.plane[0] != nullptr && image.plane[1] != nullptr;
}

/// True if planes with these pitches have rows of `width` bytes and can exist at all.
bool holdsRows(const int32_t pitch[4], int32_t width, int64_t rows) {
    constexpr int64_t kLargest = std::numeric_limits<ptrdiff_t>::max();
    const auto holds = [&](int64_t p) { return p >= width && p * rows <= kLargest; };
    return holds(pitch[0]) && holds(pitch[1]);
}

/// True if frames go through the ring rather than straight from the caller's planes.
bool usesRing(const ZPR_Instance& instance, bool inPlace) {
    return instance.params.delayFrames > 0 || inPlace;
}

bool acceptsInput(const ZPR_Instance& instance, const ZPR_Image& input, const ZPR_Image& output) {
    const ZPR_Image& expected = instance.params.inputImage;
    if (!isKnownFormat(input.format) || input.height < output.height ||
        input.width < output.width || input.height != expected.height ||
        input.width != expected.width || !hasPlanes(input)) {
        return false;
    }
    return usesRing(instance, &input == &output)
               ? expected.pitch[0] >= expected.width
               : holdsRows(input.pitch, input.width, input.height);
}

/// Rows between the planes of an output in place: the luma height rounded up to a multiple of 32.
int64_t inPlaceLumaRows(const ZPR_Image& configured) {
    return (int64_t{configured.height} + 31) & ~int64_t{31};
}

bool acceptsOutput(const ZPR_Instance& instance, const ZPR_Image& output, bool inPlace) {
    const ZPR_Image& configured = instance.params.outputImage;
    const int32_t width = configured.width;
    if (inPlace) return holdsRows(configured.pitch, width, inPlaceLumaRows(configured));
    return hasPlanes(output) && holdsRows(output.pitch, width, output.height) &&
           output.height % 2 == 0;
}

/// Gives the caller's record the output geometry.
void describeInPlaceOutput(const ZPR_Image& configured, ZPR_Image& output) {
    output.width = configured.width;
    output.height = configured.height;
    output.pitch[0] = configured.pitch[0];
    output.pitch[1] = configured.pitch[1];
    output.plane[1] = output.plane[0] + configured.pitch[0] * inPlaceLumaRows(configured);
}

}  // namespace

int stabilize(ZPR_Instance& instance, double timestamp, const ZPR_Image* input, ZPR_Image& output,
              const ZPR_Param* update) {
    const bool inPlace = input == &output;
    if (input == nullptr && instance.framesIn == instance.framesOut) return ZPR_ERR_INVALID_PARAM;
    if (input != nullptr && !acceptsInput(instance, *input, output)) return ZPR_ERR_INVALID_PARAM;
    const bool isFilling = input != nullptr && instance.framesIn < instance.params.delayFrames;
    if (!isFilling && !acceptsOutput(instance, output, inPlace)) return ZPR_ERR_INVALID_PARAM;

    // All that may run out of memory comes before the first change.
    FrameCorrection correction;
    correction.reserve(1);
    instance.hub->findOrientationSensor();

    // A frame before time 0 still has to enter the smoother's ring, where only the drain's time is
    // negative.
    double t = timestamp + instance.params.timeOffset;
    if (!(t >= 0.0)) t = 0.0;
    Smoother& smoother = *instance.smoother;
    if (update != nullptr) smoother.updateParams(*update);

    const ZPR_Image* source = input;
    if (input != nullptr && usesRing(instance, inPlace)) {
        storeFrame(instance.ring, instance.framesIn, *input, t);
    }
    if (isFilling) {
        smoother.smoothFrame(t, nullptr);
        ++instance.framesIn;
        return ZPR_FRAME_BUFFERED;
    }

    constexpr double kNoNewFrame = -1.0;
    if (input == nullptr || usesRing(instance, inPlace)) {
        source = &instance.ring.slotOf(instance.framesOut).frame;
    }
    ++instance.framesOut;
    if (inPlace) describeInPlaceOutput(instance.params.outputImage, output);
    if (!smoother.smoothFrame(input == nullptr ? kNoNewFrame : t, &correction)) {
        smoother.fallbackCorrection(&correction);
    }
    // The warper writes as many columns as it was made for: an output without columns gets no rows.
    ZPR_Image target = output;
    if (target.width <= 0) target.height = 0;
    instance.warper->warp(*source, target, correction);
    if (input != nullptr) ++instance.framesIn;
    return ZPR_OK;
}

}  // namespace qlx::zpr_framehold
