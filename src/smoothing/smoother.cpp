#include "smoothing/smoother.h"

#include <algorithm>

namespace qlx::zpr_framehold {

namespace {

/// Number of ring entries: `delayFrames` waiting frames and the one being output.
uint32_t ringSize(const ZPR_Param& params) { return static_cast<uint32_t>(params.delayFrames) + 1; }

}  // namespace

Smoother::Smoother(const ZPR_Param* params, SensorHub* hub)
    : params_(params), hub_(hub), view_(*params), cropLimit_(view_, *hub, sensorTimeOffset_),
      mesh_(view_) {
    buildTestBands();
    frameRing_.resize(ringSize(*params));
}

/// Divides the output's rows into bands, for crop tests band by band. No frame needs them.
void Smoother::buildTestBands() {
    constexpr int32_t kMaxBands = 20;
    const int32_t count = std::min(view_.outputHeight, kMaxBands);
    const int32_t bandHeight = view_.outputHeight <= kMaxBands ? 1 : view_.outputHeight / kMaxBands;
    const auto right = static_cast<float>(view_.outputWidth - 1);
    testBands_.resize(static_cast<uint32_t>(count));
    for (int32_t b = 0; b < count; ++b) {
        const int32_t top = b * bandHeight;
        const int32_t bottom = b == count - 1 ? view_.outputHeight - 1 : top + bandHeight - 1;
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

RowTiming Smoother::rowTiming(double t) const {
    const double readoutTime = params_->readoutTime;
    Quaternion atReadoutEnd;
    return {t, readoutTime, static_cast<double>(view_.inputHeight),
            hub_->getOrientation(t + readoutTime, atReadoutEnd)};
}

void Smoother::pointAtMesh(FrameCorrection& out) const {
    out.resize(1);
    out.writable()[0].mesh = &mesh_.nodes();
}

void Smoother::fillCorrection(const Quaternion& q, const RowTiming& timing, bool isRolling,
                              FrameCorrection& out) {
    rollingShutter_ = isRolling && !cropLimit_.violatesCrop(q, timing);
    RowTiming meshTiming = timing;
    meshTiming.isRolling = rollingShutter_;
    pointAtMesh(out);
    PointMapper mapper(view_, *hub_, q, meshTiming);
    mesh_.buildMesh(mapper);
}

FrameCorrection* Smoother::fallbackCorrection(FrameCorrection* out) {
    if (out == nullptr) return nullptr;
    pointAtMesh(*out);
    mesh_.buildCentredCrop();
    return out;
}

void Smoother::limitCounts() {
    constexpr uint32_t kFar = uint32_t{1} << 31;
    const uint32_t turns = kFar - kFar % frameRing_.size();
    if (readCount_ < turns || writeCount_ < turns) return;
    readCount_ -= turns;
    writeCount_ -= turns;
}

void Smoother::reset() {
    readCount_ = 0;
    writeCount_ = 0;
}

}  // namespace qlx::zpr_framehold
