// Any calls in any order on one instance, in a valid state and out of it. A model tells what each
// call must return; planes and records end at pages that must not be touched.
#include "draw.h"
#include "support/guarded_frame.h"
#include "zpr_framehold.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

using zpr_fuzz::Draw;
using zpr_fuzz::require;
using zpr_test::GuardedFrame;
using zpr_test::GuardedRecord;

namespace {

constexpr double kFramePeriod = 1.0 / 30.0;

int32_t roundedUp(int32_t value, int32_t step) { return (value + step - 1) / step * step; }

ZPR_Param drawParam(Draw& draw) {
    ZPR_Param param{};
    ZPR_GetDefaultParam(&param);
    const int width = draw.even(2, 300), height = draw.even(2, 300);
    const int pitch = width + draw.integer(0, 20);
    param.inputImage = {ZPR_FORMAT_SEMIPLANAR_2, width, height, {}, {pitch, pitch}};
    param.outputImage = param.inputImage;
    if (draw.flag()) {
        param.outputImage.width = draw.even(2, width);
        param.outputImage.height = draw.even(2, height);
        param.outputImage.pitch[0] = param.outputImage.width + draw.integer(0, 20);
        param.outputImage.pitch[1] = param.outputImage.width + draw.integer(0, 20);
    }
    param.delayFrames = std::max(0, draw.integer(-3, 8));
    param.cropPercent = draw.flag() ? 80 : draw.integer(1, 100);
    param.smoothingLevel = draw.integer(1, 10);
    param.sensorMask = draw.flag() ? 5 : draw.integer(1, 63);
    if (draw.integer(0, 3) == 0) param.readoutTime = std::fabs(draw.wild());
    if (!(param.readoutTime >= 0.0)) param.readoutTime = 0.0;
    param.timeOffset = draw.integer(0, 3) == 0 ? draw.wild() : 0.0;
    if (draw.integer(0, 3) == 0) {
        param.fieldOfViewMode = ZPR_FOV_FOCAL_LENGTH;
        param.fieldOfView = std::fabs(draw.wild());
        if (!(param.fieldOfView > 0.0)) param.fieldOfView = 1.0;
    }
    return param;
}

/// An instance and what is known about it.
class CheckedInstance {
public:
    CheckedInstance(Draw& draw, void* memory) : draw_(draw), param_(drawParam(draw)) {
        const GuardedRecord<ZPR_Param> record(param_);
        const int code = ZPR_Init(memory, record.get(), &handle_);
        require(code == ZPR_OK || (code == ZPR_ERR_NO_MEMORY && memory != nullptr),
                "memory is all that can be lacking");
    }
    ~CheckedInstance() { ZPR_Deinit(&handle_); }
    CheckedInstance(const CheckedInstance&) = delete;

    bool isOpen() const { return handle_ != nullptr; }

    void step() {
        switch (draw_.integer(0, 11)) {
            case 0:
            case 1:
                return feedMotion();
            case 2:
                return feedAnything();
            case 3:
                return drain();
            case 4:
                return draw_.integer(0, 7) == 0 ? reset() : stabilizeInPlace();
            case 5:
                return stabilizeWrongly();
            default:
                return stabilize();
        }
    }

private:
    void add(int type, double time, double x, double y, double z, double w) {
        const GuardedRecord<ZPR_SensorData> record({type, time, {x, y, z, w}});
        const bool isEnabled =
            type >= 1 && type <= 6 && (param_.sensorMask & ZPR_SENSOR_BIT(type)) != 0;
        require(
            ZPR_SetSensorData(handle_, record.get()) == (isEnabled ? ZPR_OK : ZPR_ERR_SENSOR_TYPE),
            "enabled samples are taken, others are not");
    }

    /// A moving hand, at some rate.
    void feedMotion() {
        const int count = draw_.integer(1, 40);
        const double step = draw_.flag() ? 0.005 : draw_.uniform(-0.01, 0.2);
        const double rate = draw_.uniform(-3, 3);
        for (int i = 0; i < count; ++i, sensorTime_ += step) {
            angle_ += 0.5 * rate * step;
            if (i % 8 == 0) add(ZPR_SENSOR_GRAVITY_1, sensorTime_, 0.1 * rate, 0, 9.81, 0);
            add(ZPR_SENSOR_RATE_1, sensorTime_, rate, -rate, 0.3, 0);
            add(ZPR_SENSOR_ROTATION_1, sensorTime_, 0, std::sin(angle_), 0, std::cos(angle_));
        }
    }

    double drawTime(double likely) { return draw_.integer(0, 3) == 0 ? draw_.wild() : likely; }

    void feedAnything() {
        const double time = drawTime(sensorTime_);
        const double x = draw_.wild(), y = draw_.wild(), z = draw_.wild(), w = draw_.wild();
        add(draw_.integer(-1, 8), time, x, y, z, w);
    }

    void reset() {
        require(ZPR_Reset(handle_) == ZPR_OK, "a reset always works");
        framesIn_ = framesOut_ = 0;
    }

    bool isFilling() const { return framesIn_ < param_.delayFrames; }

    GuardedFrame makeInput() {
        const ZPR_Image& image = param_.inputImage;
        // The delay ring copies whole rows.
        return {image.width, image.height, image.pitch[0], image.pitch[0], draw_.flag(), true};
    }
    int outputPitch(int plane) const { return param_.outputImage.pitch[plane]; }
    /// As many rows as are written of an output of this height.
    GuardedFrame makeOutput(int height) {
        return {param_.outputImage.width,
                std::min(height, roundedUp(param_.outputImage.height, 128)), outputPitch(0),
                outputPitch(1), draw_.flag()};
    }

    int call(const ZPR_Image* input, ZPR_Image* output) {
        frameTime_ += kFramePeriod;
        if (draw_.integer(0, 7) != 0)
            return ZPR_Stabilize(handle_, drawTime(frameTime_), input, output, nullptr);
        ZPR_Param update = param_;
        update.smoothingLevel = draw_.word();
        const GuardedRecord<ZPR_Param> record(update);
        return ZPR_Stabilize(handle_, drawTime(frameTime_), input, output, record.get());
    }

    void countFrame(int code) {
        require(code == (isFilling() ? ZPR_FRAME_BUFFERED : ZPR_OK), "a frame is taken");
        framesOut_ += isFilling() ? 0 : 1;
        ++framesIn_;
    }

    void stabilize() {
        const uint8_t choice = draw_.byte();
        if (choice % 16 == 14) return stabilizeWithoutPixels();
        GuardedFrame input = makeInput();
        const int height =
            choice % 2 == 1 ? param_.outputImage.height : draw_.even(2, param_.inputImage.height);
        GuardedFrame output = makeOutput(height);
        const GuardedRecord<ZPR_Image> in(input.image), out(output.image);
        out.get()->height = height;
        countFrame(call(in.get(), out.get()));
    }

    /// A size of 0 or below: near 0, or near the lowest.
    int drawNoSize() {
        const int distance = draw_.even(0, 300);
        return draw_.flag() ? -distance : std::numeric_limits<int>::min() + distance;
    }

    void stabilizeWithoutPixels() {
        GuardedFrame input = makeInput();
        GuardedFrame output = makeOutput(param_.outputImage.height);
        output.fill(draw_.byte());
        const std::vector<uint8_t> before = output.bytes();
        const GuardedRecord<ZPR_Image> in(input.image), out(output.image);
        int32_t& size = draw_.flag() ? out.get()->height : out.get()->width;
        size = drawNoSize();
        if (draw_.flag()) {
            drainInto(out.get());
        } else {
            countFrame(call(in.get(), out.get()));
        }
        require(output.bytes() == before, "an output without pixels is left alone");
    }

    void stabilizeInPlace() {
        const ZPR_Image& image = param_.inputImage;
        const int afterLuma = outputPitch(0) * roundedUp(param_.outputImage.height, 32);
        const int bytes = std::max(image.pitch[0] * image.height,
                                   afterLuma + outputPitch(1) * (param_.outputImage.height / 2));
        const zpr_test::GuardedPlane luma(bytes, 1, bytes, true);
        GuardedFrame input = makeInput();
        const GuardedRecord<ZPR_Image> frame(input.image);
        frame.get()->plane[0] = luma.data();
        const bool wasFilling = isFilling();
        countFrame(call(frame.get(), frame.get()));
        require(wasFilling || frame.get()->plane[1] == luma.data() + afterLuma,
                "the record describes the output");
    }

    /// One field of a frame that is otherwise right.
    void spoil(ZPR_Image& in, ZPR_Image& out) {
        switch (draw_.integer(0, isFilling() ? 5 : 9)) {
            case 0:
                in.format = 0x800;
                break;
            case 1:
                in.width += draw_.flag() ? 2 : -2;
                break;
            case 2:
                in.height += draw_.flag() ? 2 : -2;
                break;
            case 3:
                in.plane[draw_.integer(0, 1)] = nullptr;
                break;
            case 4:
                out.width = in.width + 1 + std::abs(draw_.integer(0, 1000));
                break;
            case 5:
                out.height = in.height + 2;
                break;
            case 6:
                out.height -= 1;
                break;
            case 7:
                out.plane[draw_.integer(0, 1)] = nullptr;
                break;
            default:
                out.pitch[draw_.integer(0, 1)] = param_.outputImage.width - 1 - draw_.integer(0, 9);
        }
    }

    void stabilizeWrongly() {
        GuardedFrame input = makeInput();
        GuardedFrame output = makeOutput(param_.outputImage.height);
        const std::vector<uint8_t> before = output.bytes();
        const GuardedRecord<ZPR_Image> in(input.image), out(output.image);
        spoil(*in.get(), *out.get());
        require(call(in.get(), out.get()) == ZPR_ERR_INVALID_PARAM, "a wrong frame is refused");
        require(output.bytes() == before, "a refusal writes nothing");
    }

    void drain() {
        const int height = draw_.even(2, 400);
        GuardedFrame output = makeOutput(height);
        const GuardedRecord<ZPR_Image> out(output.image);
        out.get()->height = height;
        drainInto(out.get());
    }

    void drainInto(ZPR_Image* output) {
        const bool isEmpty = framesIn_ == framesOut_;
        require(call(nullptr, output) == (isEmpty ? ZPR_ERR_INVALID_PARAM : ZPR_OK),
                "what was taken can be drained, and no more");
        framesOut_ += isEmpty ? 0 : 1;
    }

    Draw& draw_;
    ZPR_Param param_;
    ZPR_Handle handle_ = nullptr;
    int framesIn_ = 0;
    int framesOut_ = 0;
    double sensorTime_ = 0.9;
    double frameTime_ = 1.0;
    double angle_ = 0.0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Draw draw(data, size);
    constexpr int kArenaBytes = 3 << 20;
    static uint32_t arena[kArenaBytes / 4];
    const bool usesArena = draw.flag();
    const int bytes = draw.flag() ? kArenaBytes : 1000 * draw.integer(1, 1000);
    if (usesArena) ZPR_FormatArena(arena, static_cast<size_t>(bytes));
    for (int count = 0; count < 3 && !draw.isEmpty(); ++count) {
        CheckedInstance instance(draw, usesArena ? arena : nullptr);
        if (!instance.isOpen()) continue;
        for (int steps = draw.integer(1, 60); steps > 0 && !draw.isEmpty(); --steps)
            instance.step();
    }
    require(!usesArena || (arena[0] == uint32_t(bytes - 16) && arena[1] == 0),
            "the arena is as it was");
    return 0;
}
