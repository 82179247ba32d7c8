// What keeps the output inside the input: the part of Smoother that limits the virtual
// orientation.
#include "smoothing/smoother.h"

namespace qlx::zpr_framehold {

namespace {

/// Whether the output position (x, y) lies in the input, as far as that is known.
bool isInside(PointMapper& mapper, const ViewGeometry& view, int32_t x, int32_t y) {
    MeshPoint p;
    return mapper.map(x, y, -1.0, p) && p.x >= 0.0 && p.x <= view.inputWidth - 1 && p.y >= 0.0 &&
           p.y <= view.inputHeight - 1;
}

}  // namespace

bool Smoother::reachesReadoutEnd(double t) {
    Quaternion atReadoutEnd;
    return hub_->getOrientation(t + params_->readoutTime, atReadoutEnd);
}

PointMapper Smoother::mapperFor(const Quaternion& q, double t) {
    const double rows = view_.inputHeight;
    return {view_, *hub_, q, RowTiming{t, params_->readoutTime, rows, rollingShutter_}};
}

/// Only the left and right edges are tested between the corners.
bool Smoother::leavesInput(const Quaternion& q, double t) {
    if (rollingShutter_ && certificate_.isInside(*hub_, q, t, params_->readoutTime)) return false;
    PointMapper mapper = mapperFor(q, t);
    const int32_t right = view_.outputWidth - 1;
    const int32_t bottom = view_.outputHeight - 1;
    const auto rowIsInside = [&](int32_t y) {
        return isInside(mapper, view_, 0, y) && isInside(mapper, view_, right, y);
    };
    // The corners first: that is where most violations are.
    if (!rowIsInside(0) || !rowIsInside(bottom)) return true;
    // 64 bits, so that the step past the last row of the tallest frame does not overflow.
    for (int64_t y = kMeshStep; y < bottom; y += kMeshStep) {
        if (!rowIsInside(static_cast<int32_t>(y))) return true;
    }
    return false;
}

bool Smoother::violatesCrop(const Quaternion& q, double t) {
    rollingShutter_ = reachesReadoutEnd(t);
    return leavesInput(q, t);
}

void Smoother::pullIntoCrop(Quaternion& q, double t) {
    if (violatesCrop(q, t)) pullTowardMeasured(q, t);
}

void Smoother::pullTowardMeasured(Quaternion& q, double t) {
    Quaternion measured;
    if (!queryOrientation(t, measured)) return;
    float lo = 0.0f;
    float hi = 1.0f;
    do {
        const float mid = (lo + hi) * 0.5f;
        if (leavesInput(slerp(q, measured, mid), t)) {
            lo = mid;
        } else {
            hi = mid;
        }
    } while (hi - lo > 0.001f);
    q = slerp(q, measured, hi);
}

}  // namespace qlx::zpr_framehold
