#include "stabilize/stabilizer.h"

#include <fmt/format.h>

namespace framehold {

namespace {

void require(int code, const char* function) {
    if (code == ZPR_ERR_NO_MEMORY) {
        throw std::runtime_error(
            fmt::format("{}: not enough memory; try a smaller --delay", function));
    }
    if (code != ZPR_OK) throw std::runtime_error(fmt::format("{} returned {}", function, code));
}

}  // namespace

Stabilizer::Stabilizer(const ZPR_Param& param, SessionWriter* recorder) : recorder_(recorder) {
    require(ZPR_Init(nullptr, &param, &handle_), "ZPR_Init");
}

void Stabilizer::addSample(const ZPR_SensorData& sample) {
    if (recorder_ != nullptr) recorder_->sample(sample);
    require(ZPR_SetSensorData(handle_, &sample), "ZPR_SetSensorData");
}

bool Stabilizer::stabilize(double timestamp, const ZPR_Image& input, ZPR_Image& output) {
    if (recorder_ != nullptr) recorder_->frame(timestamp, input);
    const int code = ZPR_Stabilize(handle_, timestamp, &input, &output, nullptr);
    if (code == ZPR_FRAME_BUFFERED) return false;
    require(code, "ZPR_Stabilize");
    return true;
}

void Stabilizer::drain(ZPR_Image& output) {
    if (recorder_ != nullptr) recorder_->drain();
    require(ZPR_Stabilize(handle_, 0.0, nullptr, &output, nullptr), "ZPR_Stabilize");
}

}  // namespace framehold
