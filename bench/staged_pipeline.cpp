#include "bench/staged_pipeline.h"

#include <stdexcept>

namespace framehold::bench {

namespace fh = qlx::zpr_framehold;

namespace {

constexpr double kFramePeriod = 1.0 / 30.0;

}  // namespace

StagedPipeline::StagedPipeline(Size size, int delayFrames, bool usePool,
                               const fh::RowKernels& kernels) {
    ZPR_Instance* instance = nullptr;
    if (fh::createInstance(nullptr, makeParam(size, delayFrames), kernels,
                           usePool ? fh::kPoolThreads : 0, instance) != ZPR_OK) {
        throw std::runtime_error("no memory for an instance");
    }
    instance_.reset(instance);
    if (usePool) threads_ += static_cast<int>(instance->pool->threadCount());
    mapper_ = std::make_unique<fh::BlockWarper>(size.width, size.height, size.width, size.height,
                                                ZPR_FORMAT_SEMIPLANAR_1, nullptr, nullptr, kernels);
    if (mapper_->status() != ZPR_OK) throw std::runtime_error("no memory for a warper");

    zpr_test::Frame first(size.width, size.height), untouched(size.width, size.height);
    for (int i = 0; i < delayFrames; ++i, advance()) {
        feedSamples();
        stabilize(first.image, untouched.image);
    }
}

double StagedPipeline::time() const { return frame_ * kFramePeriod; }

void StagedPipeline::feedSamples() {
    shake_.feedTo(
        time() + instance_->params.readoutTime + 0.005,
        [this](const ZPR_SensorData& sample) { ZPR_SetSensorData(instance_.get(), &sample); });
}

void StagedPipeline::copy(const ZPR_Image& input) {
    if (instance_->params.delayFrames == 0) return;
    fh::storeFrame(instance_->ring, frame_, input, time());
}

void StagedPipeline::smooth() {
    correction_ = {};
    correction_.reserve(1);
    instance_->hub->findOrientationSensor();
    if (!instance_->smoother->smoothFrame(time(), &correction_)) {
        throw std::runtime_error("a frame has no orientation");
    }
}

const ZPR_Image& StagedPipeline::sourceFor(const ZPR_Image& input) const {
    const int delay = instance_->params.delayFrames;
    return delay == 0 ? input : instance_->ring.slotOf(frame_ - delay).frame;
}

void StagedPipeline::map(const ZPR_Image& input, const ZPR_Image& output) {
    ZPR_Image noRows = output;
    noRows.height = 0;
    mapper_->warp(sourceFor(input), noRows, correction_);
}

void StagedPipeline::warp(const ZPR_Image& input, const ZPR_Image& output) {
    instance_->warper->warp(sourceFor(input), output, correction_);
}

void StagedPipeline::stabilize(const ZPR_Image& input, ZPR_Image& output) {
    const int code = ZPR_Stabilize(instance_.get(), time(), &input, &output, nullptr);
    if (code != ZPR_OK && code != ZPR_FRAME_BUFFERED) {
        throw std::runtime_error("ZPR_Stabilize failed");
    }
}

}  // namespace framehold::bench
