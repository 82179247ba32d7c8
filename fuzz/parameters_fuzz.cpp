// Any parameter record into the functions that take one: they agree on what is valid, and what is
// valid gives an instance that takes a frame, or ZPR_ERR_NO_MEMORY with nothing left behind.
#include "draw.h"
#include "support/fault_gate.h"
#include "support/guarded_frame.h"
#include "zpr_framehold.h"

#include <algorithm>
#include <cstring>
#include <limits>

using zpr_fuzz::Draw;
using zpr_fuzz::require;

namespace {

constexpr size_t kLargestRequest = size_t{4} << 20;
constexpr int64_t kLargestFrame = 1 << 18;

int32_t drawNumber(Draw& draw, int likelyLow, int likelyHigh) {
    return draw.integer(0, 7) == 0 ? draw.word() : draw.integer(likelyLow, likelyHigh);
}

ZPR_Image drawImage(Draw& draw) {
    ZPR_Image image{};
    image.format = draw.integer(0, 15) == 0 ? static_cast<uint32_t>(draw.word())
                                            : ZPR_FORMAT_SEMIPLANAR_1 + uint32_t{draw.flag()};
    image.width = drawNumber(draw, 0, 400) & ~int32_t{draw.integer(0, 7) > 0};
    image.height = drawNumber(draw, 0, 400) & ~int32_t{draw.integer(0, 7) > 0};
    for (int32_t& pitch : image.pitch) pitch = drawNumber(draw, 0, 500);
    return image;
}

ZPR_Param drawParam(Draw& draw) {
    ZPR_Param param{};
    ZPR_GetDefaultParam(&param);
    param.inputImage = drawImage(draw);
    param.outputImage = draw.flag() ? param.inputImage : drawImage(draw);
    if (draw.flag()) param.fieldOfView = draw.wild();
    param.fieldOfViewMode = drawNumber(draw, 1, 4);
    if (draw.flag()) param.readoutTime = draw.wild();
    if (draw.flag()) param.timeOffset = draw.wild();
    param.sensorMask = drawNumber(draw, 1, 63);
    param.cropPercent = drawNumber(draw, 1, 100);
    param.smoothingLevel = drawNumber(draw, 1, 10);
    param.delayFrames = drawNumber(draw, 0, 20);
    return param;
}

/// Feeds a frame and the sample at its time.
void useOnce(ZPR_Handle handle, const ZPR_Param& param) {
    const ZPR_Image& input = param.inputImage;
    const ZPR_Image& output = param.outputImage;
    const int64_t pitch = std::max(input.pitch[0], input.width);
    if (pitch * input.height > kLargestFrame) return;
    if (int64_t{output.width} * output.height > kLargestFrame) return;
    for (int type = 1; type <= 6; ++type) {
        const ZPR_SensorData sample{type, 1.0, {0.0, 0.0, 0.5, 1.0}};
        const int code = ZPR_SetSensorData(handle, &sample);
        const bool isEnabled = (param.sensorMask & ZPR_SENSOR_BIT(type)) != 0;
        require(code == ZPR_ERR_NO_MEMORY || (code == ZPR_OK) == isEnabled, "the mask counts");
    }
    zpr_test::GuardedFrame in(input.width, input.height, static_cast<int>(pitch),
                              static_cast<int>(pitch), true, true);
    zpr_test::GuardedFrame out(output.width, output.height, output.width, output.width, true);
    const int code = ZPR_Stabilize(handle, 1.0, &in.image, &out.image, nullptr);
    const bool isSmaller = output.width <= input.width && output.height <= input.height;
    const bool hasPitch = param.delayFrames == 0 || input.pitch[0] >= input.width;
    require(code == ZPR_ERR_NO_MEMORY || (code == ZPR_ERR_INVALID_PARAM) != (isSmaller && hasPitch),
            "a frame as described is taken");
}

/// Makes an instance in `memory` and uses it; one of the system's functions may fail meanwhile.
/// Returns whether it was made.
bool tryInstance(void* memory, const ZPR_Param& param, bool isValid, int failingPoint) {
    const zpr_test::Holdings before = zpr_test::holdings();
    zpr_test::failPoint(failingPoint);
    auto* const untouched = reinterpret_cast<ZPR_Handle>(kLargestRequest);
    ZPR_Handle handle = untouched;
    const int code = ZPR_Init(memory, &param, &handle);
    if (code == ZPR_OK) {
        require(isValid, "what cannot be sized cannot be made");
        useOnce(handle, param);
        ZPR_Deinit(&handle);
        require(handle == nullptr, "no handle is left");
    } else {
        require(code == (isValid ? ZPR_ERR_NO_MEMORY : ZPR_ERR_INVALID_PARAM), "the code fits");
        require(handle == untouched, "on errors the handle is left alone");
    }
    zpr_test::failPoint(0);
    require(zpr_test::holdings() == before, "nothing is left behind");
    return code == ZPR_OK;
}

/// Parameters for which ZPR_GetMemorySize promises that its figure is enough.
bool isFigureBinding(const ZPR_Param& param) {
    const int64_t plane = int64_t{param.inputImage.pitch[0]} * param.inputImage.height;
    return param.inputImage.pitch[0] > 0 && plane < 13000000 &&
           plane * param.delayFrames < int64_t{1} << 31;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Draw draw(data, size);
    const zpr_test::GuardedRecord<ZPR_Param> record(drawParam(draw));
    const ZPR_Param& param = *record.get();
    zpr_test::limitRequests(kLargestRequest);
    uint32_t bytes = 77;
    const int code = ZPR_GetMemorySize(&param, &bytes);
    require((code == ZPR_OK) == (bytes != 77), "only valid parameters have a size");
    const int failingPoint = draw.flag() ? draw.integer(1, 50) : 0;
    zpr_test::pretendProcessors(draw.integer(-2, 20));
    tryInstance(nullptr, param, code == ZPR_OK, failingPoint);

    constexpr uint32_t kLargestArena = 0x1400000 + (1 << 20);
    if (code == ZPR_OK && bytes <= kLargestArena) {
        static uint32_t arena[kLargestArena / 4];
        require(ZPR_FormatArena(arena, bytes) == ZPR_OK, "a size is a size for an arena");
        const long refused = zpr_test::requestsRefused();
        const bool isMade = tryInstance(arena, param, true, failingPoint);
        require(isMade || failingPoint != 0 || refused != zpr_test::requestsRefused() ||
                    !isFigureBinding(param),
                "an arena of that size is enough");
        const uint32_t header[2] = {(bytes - 16) & ~3u, 0};
        require(std::memcmp(arena, header, sizeof header) == 0, "the arena is as it was");
    }
    zpr_test::limitRequests(std::numeric_limits<size_t>::max());
    return 0;
}
