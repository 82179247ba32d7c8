#include "gstreamer/stabilizer_session.h"

#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

void require(int code, const char* function, const ZPR_Param& param) {
    if (code == ZPR_OK) return;
    if (code == ZPR_ERR_NO_MEMORY) {
        throw std::runtime_error(fmt::format("delay: not enough memory for {} frames of {}x{}",
                                             param.delayFrames, param.inputImage.width,
                                             param.inputImage.height));
    }
    throw std::runtime_error(fmt::format("{} returned {}", function, code));
}

}  // namespace

StabilizerSession::StabilizerSession(const ZPR_Param& param, double start)
    : param_(param), update_(param), shift_(1.0 - start) {
    ZPR_Handle handle = nullptr;
    require(ZPR_Init(nullptr, &param_, &handle), "ZPR_Init", param_);
    handle_.reset(handle);
    require(ZPR_StartSmoothingPolicy(&policy_, &param_), "ZPR_StartSmoothingPolicy", param_);
}

bool StabilizerSession::addSample(ZPR_SensorData sample) {
    if ((param_.sensorMask & ZPR_SENSOR_BIT(sample.type)) == 0) return false;
    sample.timestamp += shift_;
    ZPR_FeedSmoothingPolicy(&policy_, &sample);
    require(ZPR_SetSensorData(handle_.get(), &sample), "ZPR_SetSensorData", param_);
    return true;
}

bool StabilizerSession::stabilize(double time, const ZPR_Image& input, ZPR_Image& output) {
    // The policy follows the camera while it is not asked, too, since it may be later.
    const int chosen = ZPR_ChooseSmoothingLevel(&policy_, time + shift_);
    update_.smoothingLevel = smoothing_ == 0 ? chosen : smoothing_;
    const int code = ZPR_Stabilize(handle_.get(), time + shift_, &input, &output, &update_);
    if (code == ZPR_FRAME_BUFFERED) {
        ++taken_;
        return false;
    }
    require(code, "ZPR_Stabilize", param_);
    return true;
}

}  // namespace framehold
